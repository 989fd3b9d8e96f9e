#include "outputs/save_output.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <mutex>

#include "base/errors.h"
#include "base/log.h"
#include "base/system/fd.h"
#include "base/system/files.h"
#include "frames/frame_worker.h"

namespace lumsar::agent {
namespace {

// Half a second of frames may wait for the disk.
constexpr std::size_t kQueueCapacity = 16;

// The first error ends the saving of its camera.
class SaveSink : public Sink {
 public:
  SaveSink(std::string base, std::string name, SaveAs how, std::function<void()> changed)
      : m_base(std::move(base)),
        m_name(std::move(name)),
        m_how(how),
        m_changed(std::move(changed)),
        m_worker(kQueueCapacity, [this](const Frame& frame) { return work(frame); }) {}

  bool hasConsumer() const override { return !m_failed; }
  void deliver(FramePtr frame) override { m_worker.push(std::move(frame)); }
  void close() override { m_worker.close(); }
  bool closed() const override { return m_worker.closed(); }
  SinkReport report() const override;

 private:
  bool work(const Frame& frame);
  bool saveImage(const Frame& frame);
  bool openVideo(std::uint32_t encoding);
  bool append(const Frame& frame);
  void countFile(const std::string& path);
  bool fail(const std::string& path, const std::string& why);

  const std::string m_base;
  const std::string m_name;
  const SaveAs m_how;
  const std::function<void()> m_changed;
  std::atomic<bool> m_failed{false};
  mutable std::mutex m_mutex;
  SinkReport m_report;

  // Used by the worker's thread only.
  base::UniqueFd m_video;
  std::string m_videoPath;
  std::uint32_t m_videoEncoding = 0;
  unsigned m_videos = 0;
  off_t m_videoSize = 0;
  bool m_sawKey = false;
  unsigned m_images = 0;

  FrameWorker m_worker;  // last, so that its thread ends first
};

bool SaveSink::work(const Frame& frame) {
  if (m_failed) return false;
  if (frame.format.encoding == kEncodingH264) {
    m_sawKey = m_sawKey || (frame.format.flags & kFrameIsKey) != 0;
    return m_sawKey && append(frame);
  }
  m_sawKey = false;
  return m_how == SaveAs::VideoFile ? append(frame) : saveImage(frame);
}

bool SaveSink::saveImage(const Frame& frame) {
  const std::string path = base::text("{}-{:06}.jpg", m_base, ++m_images);
  if (!base::replaceFile(path, frame.data)) return fail(path, base::systemError());
  countFile(m_base + "-*.jpg");
  return true;
}

// A file holds one encoding: a policy may change it while the camera runs.
bool SaveSink::openVideo(std::uint32_t encoding) {
  if (m_video && m_videoEncoding == encoding) return true;
  // No camera's label has this separator.
  const std::string number = m_videos++ == 0 ? "" : base::text("+{}", m_videos);
  m_videoPath = m_base + number + (encoding == kEncodingH264 ? ".h264" : ".mjpeg");
  m_videoEncoding = encoding;
  m_videoSize = 0;
  m_video = base::openForWriting(m_videoPath);
  if (!m_video) return fail(m_videoPath, base::systemError());
  countFile(m_videoPath);
  return true;
}

// The file never ends with an incomplete frame.
bool SaveSink::append(const Frame& frame) {
  if (!openVideo(frame.format.encoding)) return false;
  if (!base::writeAll(m_video.get(), frame.data)) {
    std::string why = base::systemError();
    if (ftruncate(m_video.get(), m_videoSize) != 0) why += "; its last frame may be incomplete";
    return fail(m_videoPath, why);
  }
  m_videoSize += static_cast<off_t>(frame.data.size());
  return true;
}

void SaveSink::countFile(const std::string& path) {
  const std::lock_guard lock(m_mutex);
  ++m_report.files;
  m_report.path = path;
}

// Returns false.
bool SaveSink::fail(const std::string& path, const std::string& why) {
  const std::string error = base::text("cannot save to {}: {}", path, why);
  base::logError(
      "camera \"{}\": {}; it is no longer saved, make room or choose another directory and start "
      "again",
      m_name, error);
  {
    const std::lock_guard lock(m_mutex);
    m_report.error = error;
  }
  m_failed = true;
  m_changed();
  return false;
}

SinkReport SaveSink::report() const {
  const std::lock_guard lock(m_mutex);
  SinkReport report = m_report;
  report.delivered = m_worker.delivered();
  report.dropped = m_worker.dropped();
  return report;
}

}  // namespace

SaveOutput::SaveOutput(std::string directory, SaveAs how)
    : m_directory(std::move(directory)), m_how(how) {
  std::error_code error;
  std::filesystem::create_directories(m_directory, error);
  if (!error && access(m_directory.c_str(), W_OK | X_OK) != 0) {
    error.assign(errno, std::generic_category());
  }
  if (!error) return;
  throw base::Failure(base::text(
      "cannot save to the directory {}: {}; choose one that is writable or whose parent is",
      m_directory, error.message()));
}

std::unique_ptr<Sink> SaveOutput::open(const protocol::Announcement& camera, int /*handle*/,
                                       const std::string& label, std::function<void()> changed) {
  return std::make_unique<SaveSink>(m_directory + "/" + label, camera.name, m_how,
                                    std::move(changed));
}

}  // namespace lumsar::agent
