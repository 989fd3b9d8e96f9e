// CameraStream: one camera and those who read from it. The camera runs while there is a reader, by
// one Capture that suits them all, and not a moment longer. It is not started again at once, lest a
// VM keep it switching. Trouble with the device is tried again after a growing pause for as long as
// somebody reads. Bound to the io_context's thread.
#ifndef LUMSAR_CAMERA_SERVICE_CAMERA_CAMERA_STREAM_H
#define LUMSAR_CAMERA_SERVICE_CAMERA_CAMERA_STREAM_H

#include <asio/steady_timer.hpp>
#include <functional>
#include <map>
#include <vector>

#include "camera/camera_info.h"
#include "capture/capture.h"

namespace lumsar::service {

class FrameReader {
 public:
  virtual ~FrameReader() = default;
  virtual CaptureRequest request() const = 0;
  // False: it takes no more, and is removed. Must not add or remove readers of this camera.
  virtual bool onFrame(const CapturedFrame& frame) = 0;
};

class CameraStream : private CaptureEvents {
 public:
  using OnTrouble = std::function<void(const Camera& camera, const std::string& why)>;
  struct Counters {
    std::uint64_t frames = 0;
    std::uint64_t bytes = 0;
    std::int64_t encodeTime = 0;  // µs a picture
  };

  // `camera` is the catalogue's and outlives the stream.
  CameraStream(asio::io_context& io, asio::thread_pool& cameraThreads, const Camera& camera,
               OnTrouble onTrouble);

  void add(FrameReader& reader);
  void remove(FrameReader& reader);
  // A reader's request has changed.
  void refresh();
  void requestKeyFrame();

  bool running() const { return m_capture != nullptr; }
  std::size_t readers() const { return m_readers.size(); }
  const Camera& camera() const { return m_camera; }
  // Why the last try failed, until the camera gives a picture or nobody reads; else empty.
  const std::string& trouble() const { return m_trouble; }
  // How the camera would run for `request`.
  CapturePlan planFor(const CaptureRequest& request) const;
  const CapturePlan* plan() const { return m_capture ? &m_capture->plan() : nullptr; }
  Counters counters() const;

 private:
  void onFrame(const CapturedFrame& frame) override;
  void onCaptureFailed(const std::string& why) override;
  void onReaderGone();
  void startSoon();
  void startAfter(std::chrono::milliseconds pause);
  void start();
  void stop();
  void watch();
  asio::steady_timer::time_point silentAt() const;
  void leaveOutTriedFormat();

  asio::io_context& m_io;
  const Capture::CameraTurns m_cameraTurns;
  const Camera& m_camera;
  const OnTrouble m_onTrouble;
  std::vector<FrameReader*> m_readers;
  std::shared_ptr<Capture> m_capture;
  asio::steady_timer m_timer;  // the pause before the next start, or the watch over a silent camera
  asio::steady_timer::time_point m_lastStart;
  std::chrono::milliseconds m_pause{0};
  std::string m_trouble;
  asio::steady_timer::time_point m_lastSign;  // of life: a frame, or the start
  CameraFormat m_tried;                       // by the last start
  std::vector<CameraFormat> m_failed;         // without any frame, for those who read now
  Counters m_counters;
};

// One stream for each camera, made when it is first asked for.
class StreamTable {
 public:
  StreamTable(asio::io_context& io, asio::thread_pool& cameraThreads,
              CameraStream::OnTrouble onTrouble)
      : m_io(io), m_cameraThreads(cameraThreads), m_onTrouble(std::move(onTrouble)) {}

  CameraStream& of(const Camera& camera);
  const CameraStream* find(std::uint32_t number) const;

 private:
  asio::io_context& m_io;
  asio::thread_pool& m_cameraThreads;
  const CameraStream::OnTrouble m_onTrouble;
  std::map<std::uint32_t, std::unique_ptr<CameraStream>> m_streams;
};

}  // namespace lumsar::service

#endif
