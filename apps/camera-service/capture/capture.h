// Capture: one running camera, from its device to encoded frames.
//
//   CapturePipeline -- streaming thread: FrameTap -- post --> main loop: onFrame
//
// State changes, which may wait for a device, run one after another, in the camera's turns, on
// their own threads.
#pragma once

#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <asio/strand.hpp>
#include <asio/thread_pool.hpp>
#include <cstdint>
#include <memory>
#include <string>

#include "capture/frame_tap.h"
#include "protocol/message.h"

namespace lumsar::service {

struct CapturedFrame {
  protocol::SharedBytes data;
  int width = 0;
  int height = 0;
  std::uint32_t encoding = 0;
  bool key = true;
  std::uint64_t time = 0;  // µs since 1970: when it was captured
};

class CaptureEvents {
 public:
  virtual ~CaptureEvents() = default;
  virtual void onFrame(const CapturedFrame& frame) = 0;
  // The first frame that is "cut off" or the like; `why` is "it ...".
  virtual void onDamagedFrame(const std::string& why) = 0;
  virtual void onCaptureFailed(const std::string& why) = 0;
};

class Capture {
  struct Key {};

 public:
  // One camera's, so that its device is closed before it is opened again. A device that hangs keeps
  // one thread busy and delays no other camera.
  using CameraTurns = asio::strand<asio::thread_pool::executor_type>;

  // Starts the camera. Throws std::runtime_error when the pipeline cannot be built; what fails
  // later is an event.
  static std::shared_ptr<Capture> start(asio::io_context& io, const CameraTurns& cameraTurns,
                                        GstDevice* device, const CapturePlan& plan,
                                        CaptureEvents& events);
  Capture(Key key, asio::io_context& io, const CameraTurns& cameraTurns, GstDevice* device,
          const CapturePlan& plan, CaptureEvents& events);
  ~Capture();
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;

  // Changes to another plan while running. False when that needs a new capture.
  bool adapt(const CapturePlan& plan);
  void requestKeyFrame();
  // While it is held, hardly any frame is encoded: there is no room for them.
  void hold(bool held) { m_frames->hold(held); }
  const CapturePlan& plan() const { return m_plan; }
  const FrameTap& frames() const { return *m_frames; }

 private:
  struct MainLoop;

  FrameTap::Events tapEvents();
  void watchBus();
  void play();
  void drain();
  void deliver(GstPtr<GstSample> sample);
  std::uint64_t captureTime(GstSample* sample) const;
  void onEndOfStream();
  void rewind();

  CameraTurns m_cameraTurns;
  CapturePlan m_plan;
  CaptureEvents& m_events;
  const CapturePipeline m_pipeline;
  const std::shared_ptr<MainLoop> m_mainLoop;
  const std::shared_ptr<FrameTap> m_frames;
  asio::steady_timer m_lastFrame;  // until its time is over
};

}  // namespace lumsar::service
