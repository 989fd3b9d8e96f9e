// PortWriter: sends what a SendQueue holds through an open SPICE port.
// Bound to the thread of GLib's default context.
#pragma once

#include <spice-client.h>

#include <memory>

#include "transport/send_queue.h"

namespace lumsar::host {

class PortWriter : public std::enable_shared_from_this<PortWriter> {
 public:
  explicit PortWriter(SendQueue& queue) : m_queue(queue) {}

  void open(SpicePortChannel* port) { m_port = port; }
  // From here on neither the port nor the queue is used, though a write may still call back.
  void close() { m_port = nullptr; }
  void drain();
  bool isWriting() const { return m_outstanding > 0; }

 private:
  struct Write;

  SendQueue& m_queue;
  SpicePortChannel* m_port = nullptr;  // while it is open
  int m_outstanding = 0;
};

}  // namespace lumsar::host
