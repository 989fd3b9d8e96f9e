// Camera: one announced camera. Asks the service for frames while a sink has a consumer, counts
// what arrives, delivers complete frames to the sinks.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/latency.h"
#include "outputs/sink.h"
#include "protocol/camera_record.h"
#include "session/counters.h"

namespace lumsar::agent {

using protocol::Bytes;
using Clock = std::chrono::steady_clock;

struct CameraStatus {
  int handle = 0;
  protocol::Announcement info;
  bool present = true;
  bool started = false;
  std::uint16_t width = 0;
  std::uint16_t height = 0;
  std::uint32_t encoding = 0;
  Counters counters;
  std::uint64_t dropped = 0;
  std::uint32_t rate = 0;  // frames per 1000 s
  std::uint64_t latencyMedian = 0;
  std::uint64_t latency99 = 0;  // the 99th percentile
  std::uint64_t latencyWorst = 0;
  SinkReport sinks;
};

class Camera {
 public:
  // Sends a record about this camera to the service.
  using Ask = std::function<void(CameraDataKind kind, Bytes body)>;

  Camera(protocol::Announcement info, int handle, std::vector<std::unique_ptr<Sink>> sinks, Ask ask,
         FrameBudget& budget);

  void takeFrame(const CameraDataHeader& header, Bytes body);
  // Starts or stops the camera by what the sinks need; once a second sends statistics.
  void update(Clock::time_point now);
  // The service shares the camera once more, unchanged: who uses it goes on.
  void repeatStart();
  // When to call it again though nothing has happened.
  Clock::time_point due() const;
  // Stops the camera if it runs; its sinks finish.
  void retire(bool tellService);
  bool sinksClosed() const;

  const protocol::Announcement& info() const { return m_info; }
  CameraStatus status() const;

 private:
  bool isShowable(const Frame& frame, bool gap);
  bool isShowableJpeg(const Frame& frame);
  bool isShowableVideo(const Frame& frame, bool gap);
  void start(Clock::time_point now);
  void stop(bool tellService);
  void requestKeyFrame();
  std::optional<FrameSize> wantedSize() const;
  void sendWantedSize();
  void sendStatistics(Clock::time_point now);
  void tellReceived(std::uint32_t sequence);
  std::uint64_t dropped() const;
  std::uint64_t delivered() const;
  unsigned consumers() const;

  const protocol::Announcement m_info;
  const int m_handle;
  std::vector<std::unique_ptr<Sink>> m_sinks;
  Ask m_ask;
  FrameBudget& m_budget;

  bool m_present = true;
  bool m_started = false;
  bool m_needsKey = true;
  bool m_loggedBad = false;
  unsigned m_consumers = 0;  // sinks that have one, at the last update
  Clock::time_point m_lastConsumed;
  Clock::time_point m_lastStatistics;
  Clock::time_point m_lastKeyRequest;

  std::optional<FrameSize> m_toldSize;  // the service, since the camera was off

  CameraFrame m_format;
  Counters m_all;
  Counters m_atStart;           // what m_all and dropped() were at the last Start
  std::uint64_t m_refused = 0;  // frames for which there was no memory
  std::uint64_t m_droppedAtStart = 0;
  std::uint64_t m_deliveredBefore = 0;  // at the last statistics
  std::uint32_t m_rate = 0;
  SequenceWatch m_sequence;
  base::Latencies m_latencies;
  base::Latencies m_lastSecond;
};

}  // namespace lumsar::agent
