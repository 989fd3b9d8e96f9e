// What every RDP test needs: a camera service and an RDP server played by the test, and lumsar-rdp
// between them. One to a test, with a directory of its own.
#pragma once

#include <gtest/gtest.h>

#include <csignal>
#include <optional>
#include <string>

#include "integration/rdp/camera_service.h"
#include "integration/rdp/rdp_server.h"
#include "support/process.h"
#include "support/temporary_directory.h"

namespace lumsar::test {

using std::chrono::seconds;

class Rig : public testing::Test {
 protected:
  using Variables = std::map<std::string, std::string>;

  Rig();
  // Ends a host that still runs, which must succeed.
  void TearDown() override;

  RdpServerSetup serverSetup() const;
  void startService();
  void startServer() { server.emplace(serverSetup()); }
  // lumsar-rdp with the server's address, in a script without commands, and `words` after that.
  void startHost(const Process::Words& words = {"--ignore-certificate"},
                 const Variables& variables = {});
  // All three.
  void start(const Process::Words& words = {"--ignore-certificate"},
             const Variables& variables = {});
  // The server has its client, and the handshake takes place.
  void beginSession();
  void startSession() {
    start();
    beginSession();
  }
  void stopHost() { EXPECT_EQ(host->stop(SIGINT), 0); }
  // It ends by itself, and has said this once.
  void expectEnd(int status, const std::string& text);
  // In no more than five seconds, whatever the other ends do.
  void expectQuickStop();

  // The VM reports its end open: the plug-in's HELLO, checked byte for byte, in answer.
  std::optional<HelloPayload> askForHello();
  std::optional<HelloPayload> nextHello();
  // The VM's answer to `hello`.
  void answer(const HelloPayload& hello, std::uint32_t capabilities = 0, std::uint16_t session = 0);
  // The whole handshake, until the camera service has the policy.
  void handshake(std::uint32_t capabilities = 0);
  // The host has grown by less than this since the latest handshake().
  void expectGrowthBelow(long kibibytes) const;
  // Sends data of this payload and expects it at the other end.
  void expectAtVm(const Bytes& payload);
  void expectAtService(const Bytes& payload);

  std::string path(const std::string& name) const { return directory / name; }

  const TemporaryDirectory directory;
  std::optional<CameraService> service;
  std::optional<RdpServer> server;
  std::optional<Process> host;

 private:
  long m_peakMemory = 0;  // KiB, after a handshake
};

}  // namespace lumsar::test
