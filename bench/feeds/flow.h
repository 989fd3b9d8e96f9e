// Frames at a steady rate: what a service sends when there is no camera, and the least that two
// hops of copying cost.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "harness/child.h"

namespace lumsar::bench {

struct Pace {
  std::size_t size = 0;  // of a frame
  int perSecond = 0;     // of each camera
  int cameras = 1;
  std::uint64_t ahead = UINT64_MAX;   // how many may be under way
  std::uint64_t frames = UINT64_MAX;  // after which the flow ends
};

// What the processes of a flow tell the one that measures, in memory that they share.
struct Flow {
  static constexpr std::size_t kLatencies = 1024;

  std::atomic<std::uint64_t> sent = 0;
  std::atomic<std::uint64_t> received = 0;
  std::array<std::uint64_t, kLatencies> latency;  // us, of the first ones received
};

class SharedFlow {
 public:
  SharedFlow();
  ~SharedFlow();
  SharedFlow(const SharedFlow&) = delete;
  SharedFlow& operator=(const SharedFlow&) = delete;

  Flow& operator*() const { return *m_flow; }
  Flow* operator->() const { return m_flow; }

 private:
  Flow* m_flow;
};

// What a message of a guest says of the frames that it has received, if it says anything of them.
void noteReceived(std::span<const unsigned char> message, Flow& flow);

// A camera service on the socket `path`: shares one camera with the first client that asks for any,
// and sends its frames once the guest agent starts it.
void serveFrames(const std::string& path, Pace pace, Flow& flow);

// A sender, a relay and a receiver of bare sockets, each a process that copies whole messages.
class BareHops {
 public:
  explicit BareHops(Pace pace);

  Nanoseconds used() const;
  Flow& flow() const { return *m_flow; }

 private:
  SharedFlow m_flow;
  std::vector<std::unique_ptr<Child>> m_children;
};

}  // namespace lumsar::bench
