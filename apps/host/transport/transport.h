// Transport: the host's end of the channel to the VM, whatever carries it. It puts what happens on
// the channel into an Inbox and sends what the SendQueue holds.
#pragma once

namespace lumsar::host {

// Bound to the main loop, except for wake() and what it gives to SendQueue::setSendNow().
class Transport {
 public:
  virtual ~Transport() = default;

  // Opens the channel, and again whenever it is lost, until stop().
  virtual void start() = 0;
  virtual void stop() = 0;
  // Messages wait in the queue. Thread-safe, never blocks.
  virtual void wake() = 0;
};

}  // namespace lumsar::host
