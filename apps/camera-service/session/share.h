// Share: one camera shared with one VM over one link. Announced when made, it streams between the
// VM's Start and Stop, and says Gone when it ends. While nothing of it gets through for long, it
// does not read from the camera. Owned by Host; bound to the io_context's thread.
#ifndef LUMSAR_CAMERA_SERVICE_SESSION_SHARE_H
#define LUMSAR_CAMERA_SERVICE_SESSION_SHARE_H

#include <functional>
#include <memory>

#include "camera/camera_stream.h"
#include "camera/rate_control.h"
#include "capture/pacer.h"
#include "links/vm_link.h"
#include "lumsar/camera_data.h"

namespace lumsar::service {

class Share : private FrameReader {
 public:
  struct Counters {
    std::uint64_t offered = 0;  // frames meant for this VM
    std::uint64_t frames = 0;   // that left
    std::uint64_t bytes = 0;
    std::uint64_t dropped = 0;  // because the link was too slow
  };

  Share(CameraStream& stream, std::shared_ptr<VmLink> link, const PolicyRule& rule);
  ~Share() override;
  Share(const Share&) = delete;
  Share& operator=(const Share&) = delete;

  void announce();
  void withdraw(const std::string& why);
  void setRule(const PolicyRule& rule);

  // What the VM says.
  void start();
  void stop();
  void requestKeyFrame();
  void onStatistics(const CameraStatistics& statistics);

  bool started() const { return m_started; }
  const Camera& camera() const { return m_stream.camera(); }
  const std::shared_ptr<VmLink>& link() const { return m_link; }
  const Counters& counters() const { return *m_counters; }
  double rateLimit() const { return m_rateControl.limit(); }

 private:
  CaptureRequest request() const override;
  bool onFrame(const CapturedFrame& frame) override;
  void read();
  void send(const CapturedFrame& frame);
  bool stuck() const;
  std::int64_t interval() const;

  CameraStream& m_stream;
  const std::shared_ptr<VmLink> m_link;
  PolicyRule m_rule;
  Pacer m_pacer;
  RateControl m_rateControl;
  bool m_started = false;
  // Shared with frames that wait in the link's queue.
  struct Shared : Counters {
    bool needsKey = true;       // a lost H.264 frame spoils those after it
    std::int64_t lastLeft = 0;  // µs: when the last frame left, or reading began
    bool droppedSince = false;
    std::function<void()> onLeave;  // set while the share waits for its queue to move
  };
  std::shared_ptr<Shared> m_counters = std::make_shared<Shared>();
};

}  // namespace lumsar::service

#endif
