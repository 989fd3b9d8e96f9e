// FrameTap: where frames leave a running pipeline, passed through or encoded.
//
//   source - format -+- decode ... encode - sink -+- the newest two frames -> main loop
//                    +------ passed through ------+
//
// All of it happens on the one streaming thread, in which the pipeline decodes and encodes too: so
// frames keep their order, and none is lost when it changes from one to the other.
#pragma once

#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "capture/capture_pipeline.h"
#include "capture/pacer.h"
#include "formats/pass_through.h"

namespace lumsar::service {

inline constexpr std::int64_t kHeldInterval = 1'000'000;  // µs

class FrameTap : public std::enable_shared_from_this<FrameTap> {
 public:
  // On the streaming thread.
  struct Events {
    std::function<void()> onFrames;                       // take() has some
    std::function<void(const char* why)> onFirstDamaged;  // "it ..."; the others are only counted
  };

  // Oldest first; without a sample where there is none. Older frames are outdated.
  using Newest = std::array<GstPtr<GstSample>, 2>;

  FrameTap(const CapturePlan& plan, Events events);

  // The pipeline holds the tap from then on.
  void attach(const CapturePipeline& pipeline);

  void setPlan(const CapturePlan& plan);
  // While it is held, one frame in kHeldInterval goes on, as a sign of life.
  void hold(bool held) { m_held = held; }
  Newest take();
  // What becomes of the camera's frames, by the latest.
  std::string treatment() const;
  // Mean time that the encoder took for a frame, µs.
  std::int64_t encodeTime() const;
  std::uint64_t damaged() const { return m_damaged; }

 private:
  GstPadProbeReturn onCaptured(GstPad* pad, GstBuffer* buffer);
  bool isDue();
  bool isHeldBack(std::int64_t now);
  Treatment judge(GstBuffer* buffer);
  void onEncodeEnd();
  void onEncoded();
  void push(GstPtr<GstSample> sample);

  const Events m_events;
  GstElement* m_sink = nullptr;

  mutable std::mutex m_mutex;
  CapturePlan m_plan;
  Treatment m_treatment;
  Newest m_frames;

  std::atomic<bool> m_held = false;
  std::int64_t m_lastLet = 0;  // these four on the streaming thread
  Pacer m_pacer;
  bool m_discard = false;  // what comes next out of the encoder: it was passed through
  std::int64_t m_encodeBegin = 0;
  std::atomic<std::int64_t> m_encodeTotal = 0;
  std::atomic<std::int64_t> m_encodeCount = 0;
  std::atomic<std::uint64_t> m_damaged = 0;
};

}  // namespace lumsar::service
