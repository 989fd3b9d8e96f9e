// CameraStream: one camera and its consumers. The camera runs while there is a consumer, by one
// Capture that suits them all, and not a moment longer. It is not started again at once, so that a
// VM cannot keep it switching. When the device fails, it is retried with a growing back-off for as
// long as there is a consumer.
#pragma once

#include <asio/steady_timer.hpp>
#include <functional>
#include <map>
#include <vector>

#include "base/back_off.h"
#include "camera/camera_info.h"
#include "capture/capture.h"
#include "formats/line_plan.h"

namespace lumsar::service {

class FrameConsumer {
 public:
  virtual ~FrameConsumer() = default;
  virtual CaptureRequest request() const = 0;
  // False: it is to be removed. Must not add or remove consumers of this camera.
  virtual bool onFrame(const CapturedFrame& frame) = 0;
  // For how long (µs) there has been no room for frames on its line; 0 when there is.
  virtual std::int64_t lineFullFor() = 0;
};

// H.264 waits no longer for one of several consumers, which then needs a key frame.
inline constexpr std::int64_t kLongestWait = 1'000'000;  // µs

class CameraStream : private CaptureEvents {
 public:
  using OnFailure = std::function<void(const Camera& camera, const std::string& why)>;
  struct Counters {
    std::uint64_t frames = 0;
    std::uint64_t bytes = 0;
    std::int64_t encodeTime = 0;  // µs per frame
    std::uint64_t damaged = 0;    // frames of an MJPG camera
  };

  // `camera` is the catalogue's and outlives the stream.
  CameraStream(asio::io_context& io, asio::thread_pool& cameraThreads, const Camera& camera,
               OnFailure onFailure);
  asio::io_context& io() const { return m_io; }

  void add(FrameConsumer& consumer);
  void remove(FrameConsumer& consumer);
  // A consumer's request has changed.
  void refresh();
  void requestKeyFrame();
  // The line of a consumer has got room, or has none any more.
  void updateHold();
  // Bytes a second that would be sent if no line were a limit.
  double wantedRate() const;

  bool running() const { return m_capture != nullptr; }
  std::size_t consumers() const { return m_consumers.size(); }
  const Camera& camera() const { return m_camera; }
  // Why the camera failed, until it delivers a frame or has no consumer; else empty.
  const std::string& error() const { return m_error; }
  // How the camera would run for `request`.
  CapturePlan planFor(const CaptureRequest& request) const;
  const CapturePlan* plan() const { return m_capture ? &m_capture->plan() : nullptr; }
  // What becomes of its frames, for people; empty when it is off.
  std::string treatment() const;
  Counters counters() const;

 private:
  void onFrame(const CapturedFrame& frame) override;
  void onDamagedFrame(const std::string& why) override;
  void onCaptureFailed(const std::string& why) override;
  void onConsumerRemoved();
  CaptureRequest combinedRequest() const;
  CapturePlan planForLines() const;
  void followLines();
  void measure(const CapturedFrame& frame);
  void startSoon();
  void startAfter(std::chrono::milliseconds delay);
  void start();
  void stop();
  void switchOff();
  void watch();
  asio::steady_timer::time_point silentAt() const;
  void leaveOutTriedFormat();

  asio::io_context& m_io;
  const Capture::CameraTurns m_cameraTurns;
  const Camera& m_camera;
  const OnFailure m_onFailure;
  std::vector<FrameConsumer*> m_consumers;
  std::shared_ptr<Capture> m_capture;
  asio::steady_timer m_timer;  // until the next start, or watching over a silent camera
  asio::steady_timer::time_point m_lastStart;
  base::BackOff m_backOff{std::chrono::seconds(1), std::chrono::seconds(30)};
  std::string m_error;
  asio::steady_timer::time_point m_lastSign;  // of life: a frame, or the start
  CameraFormat m_tried;                       // by the last start
  std::vector<CameraFormat> m_failed;         // without any frame, for the present consumers
  Counters m_counters;
  Detail m_detail;
  asio::steady_timer::time_point m_lastFollowed;
  asio::steady_timer::time_point m_lastKeyFrame;  // or the last request
  bool m_needsKeyFrame = false;
};

// One stream for each camera, made when it is first asked for.
class StreamTable {
 public:
  StreamTable(asio::io_context& io, asio::thread_pool& cameraThreads,
              CameraStream::OnFailure onFailure)
      : m_io(io), m_cameraThreads(cameraThreads), m_onFailure(std::move(onFailure)) {}

  CameraStream& of(const Camera& camera);
  const CameraStream* find(std::uint32_t number) const;

 private:
  asio::io_context& m_io;
  asio::thread_pool& m_cameraThreads;
  const CameraStream::OnFailure m_onFailure;
  std::map<std::uint32_t, std::unique_ptr<CameraStream>> m_streams;
};

}  // namespace lumsar::service
