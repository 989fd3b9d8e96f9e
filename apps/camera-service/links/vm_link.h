// VmLink: a way to a VM, through its host's connection or straight over TCP. Implemented by
// HostLink and TcpLink, used by Share. Bound to the io_context's thread.
#ifndef LUMSAR_CAMERA_SERVICE_LINKS_VM_LINK_H
#define LUMSAR_CAMERA_SERVICE_LINKS_VM_LINK_H

#include <string>

#include "ipc/server/outgoing.h"

namespace lumsar::service {

class VmLink {
 public:
  virtual ~VmLink() = default;
  // Until then nothing can be sent.
  virtual bool ready() const = 0;
  // The type of messages with camera data on this way.
  virtual std::uint32_t dataType() const = 0;
  virtual void send(ipc::Outgoing outgoing) = 0;
  // For people: "host" or "tcp 10.0.0.7:5000".
  virtual std::string name() const = 0;
};

}  // namespace lumsar::service

#endif
