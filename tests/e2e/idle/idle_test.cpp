// While nobody watches a shared camera, and while nobody is connected, no program wakes up: an idle
// laptop's processor sleeps, and so does a VM's.
#include <gtest/gtest.h>

#include "support/process.h"
#include "support/temporary_directory.h"
#include "support/text.h"
#include "support/wake_ups.h"

namespace lumsar::test {
namespace {

class Idle : public testing::TestWithParam<const char*> {
 protected:
  Idle() {
    programs["service"].emplace(
        Process::Words{LUMSAR_BIN "/lumsar-camera-service", "--camera", "test:Front,320x240@30"},
        setup());
    startAgent();
  }
  void startAgent() {
    programs["agent"].emplace(
        Process::Words{LUMSAR_BIN "/lumsar-agent", "--listen", socket, "--view", "0"}, setup());
  }
  void shareCamera() {
    programs["host"].emplace(Process::Words{LUMSAR_BIN "/lumsar-host", "--vm", socket, "--exec",
                                            "share test:Front", "--duration", "1h"},
                             setup());
    EXPECT_TRUE(programs["agent"]->says("announced")) << programs["host"]->output();
  }
  void expectIdle() {
    long fewest = 0;
    EXPECT_TRUE(becomesIdle(programs[GetParam()]->id(), fewest)) << fewest;
  }
  ProcessSetup setup() const { return {.environment = {{"XDG_RUNTIME_DIR", directory.path()}}}; }

  const TemporaryDirectory directory;
  const std::string socket = "unix:" + (directory / "vm.sock");
  std::map<std::string, std::optional<Process>> programs;
};

std::string nameOf(const testing::TestParamInfo<const char*>& program) {
  return program.param;
}

using IdleAlone = Idle;
TEST_P(IdleAlone, DoesNotWakeUp) {
  expectIdle();
}
INSTANTIATE_TEST_SUITE_P(, IdleAlone, testing::Values("service", "agent"), nameOf);

using IdleWithoutViewers = Idle;
TEST_P(IdleWithoutViewers, DoesNotWakeUp) {
  shareCamera();
  expectIdle();
}
INSTANTIATE_TEST_SUITE_P(, IdleWithoutViewers, testing::Values("service", "host", "agent"), nameOf);

}  // namespace
}  // namespace lumsar::test
