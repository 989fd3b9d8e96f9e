// PreviewTap: copies of frames on their way to the VM, for a preview of them. Whoever sends copies
// a frame at most, and waits for nobody. Thread-safe.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <map>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/back_off.h"
#include "lumsar/camera_data.h"

namespace lumsar::host {

// Between two frames of a camera that can be decoded by themselves.
inline constexpr std::chrono::milliseconds kPreviewInterval{200};
// Each unit of H.264 needs those before it. So many of a camera wait; then there is no preview of
// it for a while, longer each time, as a machine that is too slow for it stays so.
inline constexpr std::size_t kMaxPreviewUnits = 60;
inline constexpr std::chrono::seconds kFirstPreviewRest{5};
inline constexpr std::chrono::seconds kLongestPreviewRest{60};
// All that waits of a camera.
inline constexpr std::size_t kMaxPreviewBytes = std::size_t{8} << 20U;

class PreviewTap {
 public:
  using Clock = std::chrono::steady_clock;
  struct Frame {
    std::string camera;  // its id
    CameraFrame fields;
    std::vector<unsigned char> data;  // empty when it is too large or nobody keeps up
  };

  // Nothing is copied while it is closed. Each opening begins again.
  void open();
  void close();

  // By the queue, with complete messages: one that is not a frame; a frame that leaves.
  void pass(std::span<const unsigned char> control);
  // Without memory for it there is no preview, and the frame goes on.
  void sent(std::span<const unsigned char> frame) noexcept {
    if (!m_isOpen.load(std::memory_order_relaxed)) return;
    try {
      copy(frame, Clock::now());
    } catch (const std::exception&) {
      close();
    }
  }
  // The cameras of the connection are announced again.
  void forget();
  void copy(std::span<const unsigned char> frame, Clock::time_point now);

  enum class Event { Frame, Changed, Ended };
  // Waits until there is a frame, it has been opened or closed, or it has ended.
  Event wait();
  // The cameras take turns.
  std::optional<Frame> take();
  void end();

 private:
  struct Camera {
    std::string id;
    std::deque<Frame> waiting = {};
    std::size_t bytes = 0;  // of what waits
    Clock::time_point next = {};
    bool needsKey = true;    // of H.264
    std::uint32_t last = 0;  // frame's number, of H.264
    // H.264 that has come faster than it was taken rests.
    Clock::time_point restsUntil = {};
    base::BackOff backOff{kFirstPreviewRest, kLongestPreviewRest};

    bool wants(const CameraFrame& fields, Clock::time_point now);
    void keep(const CameraFrame& fields, std::span<const unsigned char> data,
              Clock::time_point now);
    void drop();
  };
  using Cameras = std::map<std::uint32_t, Camera>;

  void begin(bool isOpen);
  Cameras::iterator nextWaiting();

  std::atomic<bool> m_isOpen = false;
  std::mutex m_mutex;
  std::condition_variable m_came;
  Cameras m_cameras;           // by the service's number
  std::uint32_t m_latest = 0;  // whose frame was taken last
  bool m_hasChanged = false;
  bool m_hasEnded = false;
};

}  // namespace lumsar::host
