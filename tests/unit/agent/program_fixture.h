// The whole program in this process, with its sockets and files in a directory of the test.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <thread>

#include "app/program.h"
#include "support/raw_peer.h"
#include "support/temporary_directory.h"
#include "support/text.h"
#include "unit/agent/http.h"

namespace lumsar::test {

// Runs on a thread of its own until it is destroyed.
class RunningProgram {
 public:
  explicit RunningProgram(const agent::Options& options)
      : m_program(options), m_thread([this] { m_program.run(); }) {}
  ~RunningProgram() {
    m_program.stop();
    m_thread.join();
  }
  RunningProgram(const RunningProgram&) = delete;
  RunningProgram& operator=(const RunningProgram&) = delete;

  const agent::Program* operator->() const { return &m_program; }

 private:
  agent::Program m_program;
  std::thread m_thread;
};

class ProgramFixture : public testing::Test {
 protected:
  ProgramFixture() {
    options.listen = "unix:" + (folder / "vm.sock");
    options.statusFile = folder / "status.json";
    options.viewKey = kPageKey;
  }
  void start() {
    options.discard = options.save.empty() && !options.view;
    program.emplace(options);
  }
  // With a page; returns its port.
  std::uint16_t startWithPage() {
    options.view = std::uint16_t{0};
    start();
    return (*program)->viewPort();
  }
  std::string page() const {
    return "http://127.0.0.1:" + std::to_string((*program)->viewPort()) + "/?key=" + kPageKey;
  }
  // A host, after the handshake.
  RawPeer newHost() const {
    RawPeer host(options.listen);
    EXPECT_TRUE(host.handshake());
    return host;
  }
  // A host that shares cameras 1 to `count`, for all of which there is a consumer.
  RawPeer newHostWithCameras(std::uint32_t count = 1) const {
    RawPeer host = newHost();
    for (std::uint32_t i = 1; i <= count; ++i) expectStart(host, i);
    return host;
  }
  static void expectStart(const RawPeer& host, std::uint32_t camera) {
    host.send(announce(camera, "Camera"));
    EXPECT_TRUE(host.receiveRecord(CameraDataKind::Start, camera));
  }

  const TemporaryDirectory folder;
  agent::Options options;
  std::optional<RunningProgram> program;
};

}  // namespace lumsar::test
