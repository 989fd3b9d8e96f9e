// DeviceTransport: a character device as the transport to the host: a virtio port of a SPICE VM, a
// serial line. The device can appear and disappear, and so can the client at its other end.
#pragma once

#include <functional>
#include <optional>

#include "base/system/fd.h"
#include "transport/agent_transport.h"

namespace lumsar::agent {

// The device of the virtio port called `name`, looked up without udev; nothing if there is none.
std::optional<std::string> findVirtioPort(
    const std::string& name, const std::string& classDirectory = "/sys/class/virtio-ports",
    const std::string& deviceDirectory = "/dev");

class DeviceTransport : public Transport {
 public:
  // `find` gives the device's path whenever it has to be opened; `what` names it in the log.
  DeviceTransport(std::function<std::optional<std::string>()> find, std::string what);

  // Without a client poll would return at once, again and again: m_watch tells of changes only.
  int descriptor() const override {
    return m_attached || !m_device ? m_device.get() : m_watch.get();
  }
  bool attached() const override { return m_attached; }
  std::chrono::steady_clock::time_point nextAttempt() const override;
  bool attach() override;
  ssize_t read(std::span<unsigned char> to) override;
  ssize_t write(std::span<const unsigned char> from) override;
  // Closes the device: the host sees its end closed and opened again.
  void detach() override;
  std::string name() const override { return "host"; }

 private:
  bool openDevice();
  void watch();
  void warnOnce(const std::string& problem);

  std::function<std::optional<std::string>()> m_find;
  std::string m_what;
  base::UniqueFd m_device;
  base::UniqueFd m_watch;  // an epoll set with the device; empty if that cannot be watched
  std::chrono::steady_clock::time_point m_lastAttempt;
  bool m_isTerminal = false;
  bool m_attached = false;
  std::string m_lastProblem;
};

}  // namespace lumsar::agent
