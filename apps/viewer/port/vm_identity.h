// Which VM a port belongs to.
#pragma once

#include <spice-client.h>

#include <string>

namespace lumsar::viewer {

struct VmIdentity {
  // For people and for the camera service's rules: as the server calls the VM, else its
  // address, else "VM".
  std::string name;
  // Under which its choices are kept. The address is part of it, as any server can claim any name.
  // Empty where it cannot be told from other VMs.
  std::string key;
};

VmIdentity identify(SpiceChannel* channel);

}  // namespace lumsar::viewer
