// VideoSink: one camera on one v4l2loopback device. Wants pictures while another program has the
// device open. Owned by Camera; show(), close() and the questions come from the channel's thread,
// everything that touches the device happens on the sink's own.
//
//   find a device -> set the format -> grey picture --somebody opens it--> pictures
//                         ^                    ^                               |
//                         +--other size--------+----- nobody has it open ------+
#ifndef LUMSAR_AGENT_OUTPUTS_V4L2_VIDEO_SINK_H
#define LUMSAR_AGENT_OUTPUTS_V4L2_VIDEO_SINK_H

#include <atomic>
#include <chrono>
#include <map>
#include <mutex>
#include <thread>

#include "outputs/v4l2/video_output.h"
#include "transport/wakeup.h"

namespace lumsar::agent {

class VideoSink final : public Sink {
 public:
  VideoSink(VideoPool& pool, CameraInfo camera, std::function<void()> changed);
  ~VideoSink() override;

  bool wanted() const override { return m_wanted; }
  void show(FramePtr frame) override;
  void close() override;
  bool closed() const override { return m_closed; }
  SinkReport report() const override;

 private:
  using Time = std::chrono::steady_clock::time_point;

  void run();
  bool findDevice();
  bool openDevice();
  void giveDeviceBack();
  void lookForReaders();
  bool write(const Frame& frame);
  bool fits(const Frame& frame);
  void adapt(const CameraFrame& format);
  void showGrey();
  void waitForSomething();
  void say(const std::string& trouble);
  FramePtr takeNewest();

  VideoPool& m_pool;
  const CameraInfo m_camera;
  const std::function<void()> m_changed;
  Wakeup m_wakeup;
  std::atomic<bool> m_wanted{false};
  std::atomic<bool> m_closing{false};
  std::atomic<bool> m_closed{false};
  std::atomic<std::uint64_t> m_taken{0};
  std::atomic<std::uint64_t> m_dropped{0};
  mutable std::mutex m_mutex;  // for the next three
  FramePtr m_newest;
  std::string m_path;
  std::string m_error;

  // Of the sink's thread.
  std::unique_ptr<VideoDevice> m_device;
  VideoFormat m_wish;    // by the announcement or the last picture
  VideoFormat m_format;  // what the device took of it
  std::set<std::string> m_refused;
  std::map<std::string, std::string> m_troubles;  // by path, so that each is logged once
  Time m_lastSearch;
  Time m_lastLook;
  Time m_lastAdaption;

  std::thread m_thread;  // last, so that all else exists when it begins
};

}  // namespace lumsar::agent

#endif
