// Share: one camera shared with one VM over one transport. Announced when made, it streams between
// the VM's Start and Stop, and says Removed when it ends. While its transport is stalled, it does
// not consume frames.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "camera/camera_stream.h"
#include "camera/line_control.h"
#include "camera/rate_control.h"
#include "capture/pacer.h"
#include "session/limited_changes.h"
#include "transports/vm_transport.h"

namespace lumsar::service {

// So many of a VM within a time; of further ones the last counts, later.
inline constexpr int kMaxSizeChanges = 8;
inline constexpr std::chrono::seconds kSizeChangesTime{10};

class Share : private FrameConsumer {
 public:
  struct Counters {
    std::uint64_t offered = 0;  // frames meant for this VM
    std::uint64_t frames = 0;   // that left
    std::uint64_t bytes = 0;
    std::uint64_t dropped = 0;  // because the transport was too slow
  };

  Share(CameraStream& stream, std::shared_ptr<VmTransport> transport, const PolicyRule& rule);
  ~Share() override;
  Share(const Share&) = delete;
  Share& operator=(const Share&) = delete;

  void announce();
  void remove(const std::string& why);
  void setRule(const PolicyRule& rule);

  // What the VM reports.
  void start();
  void stop();
  void requestKeyFrame();
  // The size that its consumer has asked for; 0 where it takes any.
  void limitSize(FrameSize size);
  void onEncodingsChanged();
  void onStatistics(const CameraStatistics& statistics);
  // It has this frame.
  void onReceived(std::uint32_t sequence);

  bool started() const { return m_state != State::Stopped; }
  // Started, and its transport is not stalled.
  bool consumes() const { return m_state == State::Consuming; }
  const Camera& camera() const { return m_stream.camera(); }
  const std::shared_ptr<VmTransport>& transport() const { return m_transport; }
  const Counters& counters() const { return m_delivery->counters; }
  double rateLimit() const { return m_rateControl.limit(); }
  // For people: what the line to the VM takes, and why.
  std::string line() const;

 private:
  enum class State {
    Stopped,
    Consuming,
    Stalled,  // started, but frames are consumed again only when one of those that wait has left
  };
  // What becomes of the frames in the transport's queue, where they may outlive the share.
  struct Delivery {
    Share* share = nullptr;
    Counters counters;
    bool needsKeyFrame = true;  // a lost H.264 frame spoils those after it
    bool droppedSince = false;  // since a frame left
    std::int64_t lastLeft = 0;  // µs: when a frame left, or consuming began

    void onLeave(protocol::Message& frame);
    void onDrop();
  };

  CaptureRequest request() const override;
  bool onFrame(const CapturedFrame& frame) override;
  std::int64_t lineFullFor() override;
  bool waitsForLine(const CapturedFrame& frame);
  void consume();
  void send(const CapturedFrame& frame);
  bool isStalled() const;
  bool onFrameLeft(std::uint32_t sequence, std::size_t size);
  std::int64_t interval() const;

  CameraStream& m_stream;
  const std::shared_ptr<VmTransport> m_transport;
  PolicyRule m_rule;
  bool m_showsH264;        // the VM, when that was last looked at
  FrameSize m_lastSize;    // that the VM has asked for
  FrameSize m_wantedSize;  // the same, once it counts
  // A camera that starts again may blink.
  LimitedChanges m_sizeChanges;
  Pacer m_pacer;
  RateControl m_rateControl;
  LineControl m_line;
  std::int64_t m_lastOffered = 0;  // µs
  State m_state = State::Stopped;
  const std::shared_ptr<Delivery> m_delivery = std::make_shared<Delivery>();
};

}  // namespace lumsar::service
