// Saving pictures. A SaveSink's work() runs on its worker's thread, all else on the channel's.
// A picture's file appears under its name only when it is whole; a movie never ends in half a
// picture. The first failure ends the saving of that camera.
#include "outputs/save_output.h"

#include <fcntl.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <mutex>

#include "app/log.h"
#include "base/fd.h"
#include "outputs/frame_worker.h"
#include "transport/address.h"

namespace lumsar::agent {
namespace {

// Half a second of pictures may wait for the disk.
constexpr std::size_t kQueue = 16;

bool writeAll(int fd, Bytes bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(fd, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written == 0) errno = ENOSPC;
    if (written <= 0) return false;
    bytes = bytes.subspan(static_cast<std::size_t>(written));
  }
  return true;
}

class SaveSink : public Sink {
 public:
  SaveSink(std::string base, std::string name, SaveAs how, std::function<void()> changed)
      : m_base(std::move(base)),
        m_name(std::move(name)),
        m_how(how),
        m_changed(std::move(changed)),
        m_worker(kQueue, [this](const Frame& frame) { return work(frame); }) {}

  bool wanted() const override { return !m_failed; }
  void show(FramePtr frame) override { m_worker.push(std::move(frame)); }
  void close() override { m_worker.close(); }
  bool closed() const override { return m_worker.closed(); }
  SinkReport report() const override;

 private:
  bool work(const Frame& frame);
  bool savePicture(const Frame& frame);
  bool append(const Frame& frame, const char* suffix);
  void fail(const std::string& path, const std::string& why);

  const std::string m_base;
  const std::string m_name;
  const SaveAs m_how;
  const std::function<void()> m_changed;
  std::atomic<bool> m_failed{false};
  std::atomic<std::uint64_t> m_files{0};
  mutable std::mutex m_mutex;  // for the two texts
  std::string m_path;
  std::string m_error;

  // Of the worker's thread.
  base::UniqueFd m_movie;
  off_t m_movieSize = 0;
  bool m_sawKey = false;
  unsigned m_pictures = 0;

  FrameWorker m_worker;  // last, so that its thread ends first
};

bool SaveSink::work(const Frame& frame) {
  if (m_failed) return false;
  if (frame.format.encoding == kEncodingH264) {
    m_sawKey = m_sawKey || (frame.format.flags & kFrameIsKey) != 0;
    return m_sawKey && append(frame, ".h264");
  }
  return m_how == SaveAs::Movie ? append(frame, ".mjpeg") : savePicture(frame);
}

bool SaveSink::savePicture(const Frame& frame) {
  std::array<char, 24> suffix{};
  std::snprintf(suffix.data(), suffix.size(), "-%06u.jpg", ++m_pictures);
  const std::string path = m_base + suffix.data();
  const std::string part = path + ".part";
  const base::UniqueFd file(open(part.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  if (!file || !writeAll(file.get(), frame.picture) || rename(part.c_str(), path.c_str()) != 0) {
    const std::string why = systemError();
    unlink(part.c_str());
    fail(path, why);
    return false;
  }
  ++m_files;
  const std::lock_guard lock(m_mutex);
  m_path = m_base + "-*.jpg";
  return true;
}

bool SaveSink::append(const Frame& frame, const char* suffix) {
  const std::string path = m_base + suffix;
  if (!m_movie) {
    m_movie.reset(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    if (!m_movie) {
      fail(path, systemError());
      return false;
    }
    ++m_files;
    const std::lock_guard lock(m_mutex);
    m_path = path;
  }
  if (!writeAll(m_movie.get(), frame.picture)) {
    std::string why = systemError();
    if (ftruncate(m_movie.get(), m_movieSize) != 0) why += "; its end may be half a picture";
    fail(path, why);
    return false;
  }
  m_movieSize += static_cast<off_t>(frame.picture.size());
  return true;
}

void SaveSink::fail(const std::string& path, const std::string& why) {
  const std::string error = "cannot save to " + path + ": " + why;
  logError("camera \"", m_name, "\": ", error,
           "; it is no longer saved, make room or choose another folder and start again");
  {
    const std::lock_guard lock(m_mutex);
    m_error = error;
  }
  m_failed = true;
  m_changed();
}

SinkReport SaveSink::report() const {
  SinkReport report;
  report.taken = m_worker.taken();
  report.dropped = m_worker.dropped();
  report.files = m_files;
  const std::lock_guard lock(m_mutex);
  report.path = m_path;
  report.error = m_error;
  return report;
}

}  // namespace

SaveOutput::SaveOutput(std::string folder, SaveAs how) : m_folder(std::move(folder)), m_how(how) {
  std::error_code error;
  std::filesystem::create_directories(m_folder, error);
  if (error) {
    throw Failure("cannot save to the folder " + m_folder + ": " + error.message() +
                  "; choose one that can be made or written");
  }
  if (access(m_folder.c_str(), W_OK | X_OK) != 0) {
    throw Failure("cannot save to the folder " + m_folder + ": " + systemError() +
                  "; choose one that can be written");
  }
}

std::unique_ptr<Sink> SaveOutput::open(const CameraInfo& camera, int /*handle*/,
                                       const std::string& label, std::function<void()> changed) {
  return std::make_unique<SaveSink>(m_folder + "/" + label, camera.name, m_how, std::move(changed));
}

}  // namespace lumsar::agent
