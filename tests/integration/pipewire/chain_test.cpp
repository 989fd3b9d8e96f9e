// The whole chain, from a camera to a program in the guest that takes raw frames: the encoding and
// the size are chosen by what the guest agent tells of itself and of the program.
#include <gtest/gtest.h>

#include <filesystem>

#include "integration/pipewire/pipewire_stack.h"
#include "support/text.h"

namespace lumsar::test {
namespace {

constexpr const char* kNode = "lumsar.test-Front";

class PipewireChain : public testing::Test {
 protected:
  void SetUp() override {
    if (const std::string obstacle = PipewireStack::obstacle(); !obstacle.empty()) {
      GTEST_SKIP() << obstacle;
    }
    stack.emplace();
    writeFile(folder / "policy.json",
              R"({"command":"setpolicy","policy":[{"cameraEncodeType":"AUTO"}]})");
    service.emplace(
        Process::Words{LUMSAR_BIN "/lumsar-camera-service", "--camera", "test:Front,1280x720@30"},
        machine());
    ASSERT_TRUE(service->says("listening at")) << service->output();
  }
  // The user's, whose session is not the guest's.
  ProcessSetup machine() const { return {.environment = {{"XDG_RUNTIME_DIR", folder.path()}}}; }
  void share(const std::string& agentProgram) {
    agent.emplace(Process::Words{agentProgram, "--listen", socket, "--pipewire"}, stack->session());
    ASSERT_TRUE(agent->says("waiting for a host")) << agent->output();
    host.emplace(Process::Words{LUMSAR_BIN "/lumsar-host", "--vm", socket, "--exec",
                                "policy " + (folder / "policy.json"), "--exec", "share test:Front",
                                "--duration", "1h"},
                 machine());
    ASSERT_TRUE(eventually([this] { return stack->hasNode(kNode); }))
        << agent->output() << host->output() << stack->nodes();
  }

  const TemporaryDirectory folder;
  const std::string socket = "unix:" + (folder / "vm.sock");
  std::optional<PipewireStack> stack;
  std::optional<Process> service;
  std::optional<Process> agent;
  std::optional<Process> host;
};

bool hasElement(const std::string& name) {
  return Process({"gst-inspect-1.0", name}).wait() == 0;
}

TEST_F(PipewireChain, ADecodingAgentGetsH264InTheSizeThatAProgramTakes) {
  if (!hasElement("openh264enc") && !hasElement("x264enc")) {
    GTEST_SKIP() << "no H.264 encoder is installed";
  }
  share(LUMSAR_AGENT);
  Process consumer = stack->consumer(kNode,
                                     {"!", "video/x-raw,format=I420,width=640,height=480", "!",
                                      "filesink", "location=" + (folder / "frames")},
                                     5);
  EXPECT_TRUE(service->says("H264 640x360 sent")) << service->output() << agent->output();
  EXPECT_EQ(consumer.wait(), 0) << consumer.output();
  EXPECT_EQ(std::filesystem::file_size(folder / "frames"), 5 * 640 * 480 * 3 / 2);
}

TEST_F(PipewireChain, AnAgentWithoutItsDecoderGetsMjpg) {
  std::filesystem::copy(LUMSAR_AGENT, folder / "agent");
  share(folder / "agent");
  EXPECT_TRUE(agent->says("frames are not decoded, as ")) << agent->output();
  Process consumer = stack->consumer(kNode, {"!", "image/jpeg", "!", "fakesink"}, 5);
  EXPECT_TRUE(service->says("MJPG 1280x720 sent")) << service->output() << agent->output();
  EXPECT_EQ(consumer.wait(), 0) << consumer.output();
}

}  // namespace
}  // namespace lumsar::test
