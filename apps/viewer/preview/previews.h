// Previews: small images of the frames that go to the VM, while somebody can see them. They are
// made by a thread of its own, so neither who sends frames nor who shows images waits.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "preview/h264_images.h"
#include "preview/preview.h"
#include "transport/preview_tap.h"

namespace lumsar::viewer {

class Previews {
 public:
  // `made` is called on its thread: there is something to take. Once, until it is taken.
  explicit Previews(std::function<void()> made) : m_made(std::move(made)) {}
  ~Previews() { end(); }
  Previews(const Previews&) = delete;
  Previews& operator=(const Previews&) = delete;

  // For the queue of frames.
  std::shared_ptr<host::PreviewTap> tap() const { return m_tap; }

  // What follows is bound to one thread. Nothing is decoded until it is opened.
  void open(int scale);
  void close();
  // The newest of each camera.
  std::vector<Preview> take();
  // Waits for the frame that is being decoded.
  void end();

 private:
  // Of H.264.
  struct Stream {
    std::unique_ptr<H264Images> images = loadH264Images();
    host::PreviewTap::Clock::time_point next = {};
  };

  void run();
  void handle(host::PreviewTap::Event event);
  void make(const host::PreviewTap::Frame& frame);
  void makeFromH264(const host::PreviewTap::Frame& frame);
  void put(Preview preview);

  const std::shared_ptr<host::PreviewTap> m_tap = std::make_shared<host::PreviewTap>();
  const std::function<void()> m_made;
  std::atomic<int> m_scale = 1;
  std::map<std::string, Stream> m_streams;  // by the camera's id; the thread's
  std::mutex m_mutex;
  std::map<std::string, Preview> m_newest;  // by the camera's id
  std::thread m_thread;                     // from the first opening on
};

}  // namespace lumsar::viewer
