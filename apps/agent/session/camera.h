// Camera: one announced camera. Asks the service for pictures while a sink wants them, counts what
// comes, hands whole pictures to the sinks. Owned by CameraTable. Bound to the channel's thread.
#ifndef LUMSAR_AGENT_SESSION_CAMERA_H
#define LUMSAR_AGENT_SESSION_CAMERA_H

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "outputs/record.h"
#include "outputs/sink.h"
#include "session/counters.h"

namespace lumsar::agent {

using Clock = std::chrono::steady_clock;

struct CameraStatus {
  int handle = 0;
  CameraInfo info;
  bool present = true;
  bool started = false;
  std::uint16_t width = 0;
  std::uint16_t height = 0;
  std::uint32_t encoding = 0;
  Counters counters;
  std::uint64_t dropped = 0;
  std::uint32_t rate = 0;  // frames per 1000 s
  std::uint64_t latencyMedian = 0;
  std::uint64_t latencyWorst = 0;
  SinkReport sinks;
};

class Camera {
 public:
  // Sends a record about this camera to the service.
  using Ask = std::function<void(CameraDataKind kind, Bytes body)>;

  Camera(CameraInfo info, int handle, std::vector<std::unique_ptr<Sink>> sinks, Ask ask);

  void takeFrame(const CameraDataHeader& header, Bytes body);
  // Starts or stops the camera by what the sinks want; once a second sends statistics.
  void update(Clock::time_point now);
  // Stops the camera if it runs. Its sinks finish.
  void retire(bool tellService);
  bool sinksClosed() const;

  const CameraInfo& info() const { return m_info; }
  CameraStatus status() const;

 private:
  bool usable(const Frame& frame);
  bool usableVideo(const Frame& frame, bool gap);
  void start(Clock::time_point now);
  void stop(bool tellService);
  void requestKeyFrame();
  void sendStatistics(Clock::time_point now);
  std::uint64_t dropped() const;
  std::uint64_t taken() const;
  unsigned wanting() const;

  const CameraInfo m_info;
  const int m_handle;
  std::vector<std::unique_ptr<Sink>> m_sinks;
  Ask m_ask;

  bool m_present = true;
  bool m_started = false;
  bool m_needsKey = true;
  bool m_saidBad = false;
  unsigned m_wanting = 0;  // how many sinks, at the last update
  Clock::time_point m_unwantedSince;
  Clock::time_point m_lastStatistics;
  Clock::time_point m_lastKeyRequest;

  CameraFrame m_format;
  Counters m_all;
  Counters m_atStart;  // what m_all and dropped() were at the last Start
  std::uint64_t m_droppedAtStart = 0;
  std::uint64_t m_takenBefore = 0;  // at the last statistics
  std::uint32_t m_rate = 0;
  SequenceWatch m_sequence;
  Latencies m_latencies;
  Latencies m_lastSecond;
};

}  // namespace lumsar::agent

#endif
