// A VideoSystem that behaves like the loopback module of Debian 12: a device keeps its format while
// anybody has it open. Used by the tests of VideoSink; thread-safe.
#pragma once

#include <atomic>
#include <cerrno>
#include <map>
#include <mutex>

#include "base/system/event_fd.h"
#include "outputs/v4l2/video_system.h"
#include "support/messages.h"

namespace lumsar::test {

using namespace agent;

struct FakeNode {
  int readers = 0;
  bool open = false;
  bool broken = false;  // refuses to be opened
  bool unplugged = false;
  VideoFormat format;
  std::vector<std::vector<unsigned char>> written;
  base::EventFd changes;
};

class FakeVideo {
 public:
  std::mutex mutex;
  std::map<std::string, FakeNode> nodes;
  std::atomic<int> searches{0};
  std::atomic<int> waits{0};  // how often a sink with a device has begun to wait

  void setReaders(const std::string& path, int readers) {
    const std::lock_guard lock(mutex);
    nodes[path].readers = readers;
    nodes[path].changes.wake();
  }
  template <class Question>
  auto ask(Question question) {
    const std::lock_guard lock(mutex);
    return question(nodes);
  }
};

class FakeVideoDevice : public VideoDevice {
 public:
  FakeVideoDevice(FakeVideo& video, FakeNode& node) : m_video(video), m_node(node) {}
  ~FakeVideoDevice() override {
    const std::lock_guard lock(m_video.mutex);
    m_node.open = false;
    if (m_node.readers == 0) m_node.format = {};
  }
  bool setFormat(VideoFormat& format, std::string& /*why*/) override {
    const std::lock_guard lock(m_video.mutex);
    if (m_node.format.width == 0) {
      m_node.format = format;
      m_node.format.room = std::size_t{4} * format.width * format.height;
    }
    format = m_node.format;
    return true;
  }
  bool write(View picture) override {
    const std::lock_guard lock(m_video.mutex);
    errno = ENODEV;
    if (m_node.unplugged) return false;
    m_node.written.emplace_back(picture.begin(), picture.end());
    return true;
  }
  int changes() const override {
    ++m_video.waits;
    return m_node.changes.get();
  }
  void clearChanges() override { m_node.changes.clear(); }
  int readers() const override {
    const std::lock_guard lock(m_video.mutex);
    return m_node.readers;
  }

 private:
  FakeVideo& m_video;
  FakeNode& m_node;
};

class FakeVideoSystem : public VideoSystem {
 public:
  explicit FakeVideoSystem(FakeVideo& video) : m_video(video) {}
  std::vector<std::string> loopbackDevices() override {
    const std::lock_guard lock(m_video.mutex);
    ++m_video.searches;
    std::vector<std::string> paths;
    for (const auto& [path, node] : m_video.nodes) paths.push_back(path);
    return paths;
  }
  std::unique_ptr<VideoDevice> open(const std::string& path, std::string& why) override {
    const std::lock_guard lock(m_video.mutex);
    FakeNode& node = m_video.nodes[path];
    why = "it is broken";
    if (node.broken) return nullptr;
    node.open = true;
    return std::make_unique<FakeVideoDevice>(m_video, node);
  }

 private:
  FakeVideo& m_video;
};

}  // namespace lumsar::test
