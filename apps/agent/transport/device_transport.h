// DeviceTransport: a character device as the way to the host: a virtio port of a SPICE VM, a serial
// line. The device may come and go, and so may the client at its other end.
// Owned by a Peer. Bound to the channel's thread.
#ifndef LUMSAR_AGENT_TRANSPORT_DEVICE_TRANSPORT_H
#define LUMSAR_AGENT_TRANSPORT_DEVICE_TRANSPORT_H

#include <functional>
#include <optional>

#include "base/fd.h"
#include "transport/agent_transport.h"

namespace lumsar::agent {

// The device of the virtio port called `name`, looked up without udev; nothing if there is none.
std::optional<std::string> findVirtioPort(
    const std::string& name, const std::string& classFolder = "/sys/class/virtio-ports",
    const std::string& deviceFolder = "/dev");

class DeviceTransport : public Transport {
 public:
  // `find` gives the device's path whenever it must be opened; `what` is how people call it.
  DeviceTransport(std::function<std::optional<std::string>()> find, std::string what);

  // While no client is there, poll would return at once, again and again: a pause must do.
  int descriptor() const override { return m_attached ? m_device.get() : -1; }
  bool attached() const override { return m_attached; }
  bool attach() override;
  ssize_t read(std::span<unsigned char> to) override;
  ssize_t write(std::span<const unsigned char> from) override;
  // Closes the device: the host sees its end closed and opened again.
  void detach() override;
  std::string name() const override { return "host"; }

 private:
  bool openDevice();
  void say(const std::string& trouble);  // once; empty for none

  std::function<std::optional<std::string>()> m_find;
  std::string m_what;
  base::UniqueFd m_device;
  bool m_isTerminal = false;
  bool m_attached = false;
  std::string m_said;  // the last trouble, so that it is said once
};

}  // namespace lumsar::agent

#endif
