// VideoSink: one camera on one v4l2loopback device. It has a consumer while another program has the
// device open. Where the device is to have raw frames, they are decoded. Everything that touches
// the device happens on the sink's own thread.
//
//   find a device -> set the format -> placard -----a program opens it--> frames
//                         ^                    ^                             |
//                         +--other format------+----- no program has it open +
#pragma once

#include <atomic>
#include <chrono>
#include <mutex>
#include <set>
#include <thread>

#include "base/system/event_fd.h"
#include "outputs/newest_frame.h"
#include "outputs/placard.h"
#include "outputs/sink.h"
#include "outputs/v4l2/device_format.h"
#include "outputs/v4l2/video_pool.h"

namespace lumsar::agent {

class VideoSink final : public Sink {
 public:
  VideoSink(VideoPool& pool, DeviceFormat chosen, protocol::Announcement camera,
            std::function<void()> changed);
  ~VideoSink() override;

  bool hasConsumer() const override { return m_hasConsumer; }
  bool needsKeyFrame() const override { return m_frames.needsKeyFrame(); }
  void deliver(FramePtr frame) override { m_frames.put(std::move(frame)); }
  void close() override;
  bool closed() const override { return m_closed; }
  SinkReport report() const override;

 private:
  using Time = std::chrono::steady_clock::time_point;

  void run();
  bool findDevice();
  bool openDevice();
  void reopenDevice();
  void releaseDevice();
  void checkReaders();
  bool write(const Frame& frame);
  VideoFormat wantedFormat() const;
  void followFormat();
  bool formatDiffers() const;
  bool fits(const Frame& frame);
  void decodeFor(bool hasReaders);
  void show(Notice notice);
  void checkSignal();
  std::chrono::microseconds noSignalInterval() const;
  void waitForEvent();
  void reportProblem(const std::string& problem);

  VideoPool& m_pool;
  const DeviceFormat m_chosen;
  const bool m_hasDecoder = Decoder::isUsable();
  const protocol::Announcement m_camera;
  const std::function<void()> m_changed;
  base::EventFd m_wakeUp;
  std::atomic<bool> m_hasConsumer{false};
  std::atomic<bool> m_closing{false};
  std::atomic<bool> m_closed{false};
  std::atomic<std::uint64_t> m_delivered{0};
  std::atomic<std::uint64_t> m_dropped{0};
  NewestFrame m_frames;
  mutable std::mutex m_mutex;  // for the next two
  std::string m_path;
  std::string m_error;

  // Used by the sink's thread only.
  std::unique_ptr<VideoDevice> m_device;
  VideoFormat m_cameraFormat;  // by the announcement or the latest frame
  VideoFormat m_deviceFormat;  // what the device has accepted of it
  std::set<std::string> m_unusable;
  std::set<std::pair<std::string, std::string>> m_loggedProblems;  // with the path of the device
  Time m_lastSearch;
  Time m_lastReaderCheck;
  Time m_lastFormatCheck;
  Time m_lastShown;  // to a reader, or when it came

  std::thread m_thread;  // last, so that everything else exists when it begins
};

}  // namespace lumsar::agent
