// Rig: what every RDP test needs: a camera service and an RDP server played by the test, and
// lumsar-rdp between them. One to a test; a fresh directory each.
#ifndef LUMSAR_TESTS_INTEGRATION_RDP_RIG_H
#define LUMSAR_TESTS_INTEGRATION_RDP_RIG_H

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

#include "integration/rdp/camera_service.h"
#include "integration/rdp/host_process.h"
#include "integration/rdp/rdp_server.h"

namespace lumsar_test {

class Rig : public testing::Test {
 protected:
  Rig();
  ~Rig() override;

  RdpServerSetup serverSetup() const;
  void startService();
  void startServer() { server.emplace(serverSetup()); }
  // lumsar-rdp with the server's address, in a script without commands, and `words` after that.
  void startHost(const HostProcess::Words& words = {"--ignore-certificate"},
                 const HostProcess::Variables& variables = {});
  // All three, until the server has its client.
  void startAll();

  // The VM reports its end open: the plug-in's HELLO, checked byte for byte, in answer.
  std::optional<lumsar::HelloMessage> askForHello();
  // The VM's answer to `hello`, with these capabilities.
  void answer(const lumsar::HelloMessage& hello, std::uint32_t capabilities,
              std::uint16_t session = 0);
  // The whole handshake, until the camera service has the policy.
  void greet(std::uint32_t capabilities = 0);
  // The host has grown by less than this since the last greet().
  void expectGrowthBelow(long kibibytes) const;
  // Sends a camera data message of `payload` from the service and expects it at the VM.
  void expectThrough(const Bytes& payload);

  std::string path(const std::string& name) const { return directory + "/" + name; }

  std::string directory;
  std::optional<CameraService> service;
  std::optional<RdpServer> server;
  std::optional<HostProcess> host;

 private:
  long m_peakMemory = 0;  // KiB, of a host that has been greeted
};

}  // namespace lumsar_test

#endif
