// VmTransport: what carries a share's messages to a VM, through its host or straight over TCP.
#pragma once

#include <string>

#include "ipc/server/message_stream.h"

namespace lumsar::service {

class VmTransport {
 public:
  virtual ~VmTransport() = default;
  // Until then nothing can be sent.
  virtual bool ready() const = 0;
  // The type of the messages that carry camera data.
  virtual std::uint32_t dataType() const = 0;
  virtual void send(ipc::Outgoing outgoing) = 0;
  // For people: "host" or "tcp 10.0.0.7:5000".
  virtual std::string name() const = 0;

  // As the VM says right after its handshake; older ones do not.
  bool showsH264() const { return m_showsH264; }
  void setShowsH264(bool shows) { m_showsH264 = shows; }

 private:
  bool m_showsH264 = false;
};

}  // namespace lumsar::service
