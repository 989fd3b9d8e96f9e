// lumsar-agent --pipewire with a PipeWire of the test's own; the test is the host.
#pragma once

#include <gtest/gtest.h>

#include <csignal>
#include <functional>

#include "integration/pipewire/pipewire_stack.h"
#include "support/raw_peer.h"
#include "support/text.h"
#include "unit/agent/outputs/mosaic_jpeg.h"

namespace lumsar::test {

inline constexpr const char* kNode = "lumsar.id-1";

class Pipewire : public testing::Test {
 protected:
  void SetUp() override {
    if (const std::string obstacle = PipewireStack::obstacle(); !obstacle.empty()) {
      GTEST_SKIP() << obstacle;
    }
    stack.emplace();
    startAgent({"--status-file", folder / "status.json"});
  }
  void startAgent(const Process::Words& more,
                  const std::map<std::string, std::string>& environment = {}) {
    Process::Words command = {LUMSAR_AGENT, "--listen", socket, "--pipewire"};
    command.insert(command.end(), more.begin(), more.end());
    agent.emplace(command, stack->session(environment));
    host = RawPeer(socket);
    ASSERT_TRUE(host.handshake());
  }
  void shareCamera(const Bytes& body = announcedBody("id-1", "Front")) {
    host.send(message(MSG_DATA, record(CameraDataKind::Announced, 1, body)));
    ASSERT_TRUE(eventually([this] { return stack->hasNode(kNode); })) << agent->output();
  }
  // The user's answer to the desktop's portal, for all programs. False where there is none.
  bool permitsCameras() const {
    Process permit(
        {"gdbus", "call", "--session", "--dest", "org.freedesktop.impl.portal.PermissionStore",
         "--object-path", "/org/freedesktop/impl/portal/PermissionStore", "--method",
         "org.freedesktop.impl.portal.PermissionStore.SetPermission", "devices", "true", "camera",
         "", "['yes']"},
        stack->session());
    return permit.wait() == 0;
  }
  bool isStarted() const { return host.receiveRecord(CameraDataKind::Start, 1).has_value(); }
  bool isStopped() const { return host.receiveRecord(CameraDataKind::Stop, 1).has_value(); }

  void send(const Bytes& jpeg, std::uint16_t width = 640, std::uint16_t height = 480) {
    sendFrame(frameBody(sequence++, jpeg, kEncodingMjpg, kFrameIsKey, width, height));
  }
  void sendH264(const Bytes& unit) { sendFrame(frameBody(sequence++, unit, kEncodingH264)); }
  void sendFrame(const Bytes& body) {
    host.send(message(MSG_DATA, record(CameraDataKind::Frame, 1, body, cameraClock())));
  }
  // Sends what `next` makes, at a camera's rate, until the condition is true.
  template <class Condition>
  bool sendUntil(Condition condition, const std::function<void()>& next) {
    return eventually([&] {
      next();
      std::this_thread::sleep_for(milliseconds(20));
      return condition();
    });
  }
  bool sendUntilEnded(Process& consumer, const std::function<void()>& next) {
    return sendUntil([&] { return !consumer.running(); }, next) && consumer.wait() == 0;
  }
  bool statusHasNow(const std::string& text) const {
    return has(readFile(folder / "status.json"), text);
  }
  bool statusHas(const std::string& text) const {
    return eventually([&] { return statusHasNow(text); });
  }

  const TemporaryDirectory folder;
  const std::string socket = "unix:" + (folder / "vm.sock");
  std::optional<PipewireStack> stack;
  std::optional<Process> agent;
  RawPeer host;
  std::uint32_t sequence = 0;
};

// A JPEG of one level of grey; the sizes are in blocks of 8 by 8.
inline Bytes grey(double level, int columns = 80, int rows = 60) {
  return mosaicJpeg(columns, rows, [level](int, int) { return Colour{level, level, level}; });
}

}  // namespace lumsar::test
