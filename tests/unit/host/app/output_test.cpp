// What a person reads while nothing answers: one line for each attempt, and at the end what was
// missing.
#include <gtest/gtest.h>

#include <sstream>

#include "support/process.h"
#include "support/raw_peer.h"
#include "support/temporary_directory.h"
#include "support/text.h"

namespace lumsar::test {
namespace {

struct OutputTest : testing::Test {
  Process host(const std::string& vm) {
    return Process({LUMSAR_HOST, vm, "--exec", "list", "--timeout", "2s"},
                   {.environment = {{"XDG_RUNTIME_DIR", directory.path()}}});
  }
  const TemporaryDirectory directory;
};

TEST_F(OutputTest, AnAttemptThatFailsIsOneLine) {
  Process program = host("unix:" + (directory / "none"));
  EXPECT_EQ(program.wait(), 1);
  const std::string attempt = "no camera service: the camera service is not running";
  EXPECT_TRUE(has(program.output(), attempt)) << program.output();
  std::istringstream output(program.output());
  for (std::string line; std::getline(output, line);) {
    EXPECT_TRUE(has(line, attempt) || has(line, "no channel to the VM")) << line;
  }
}

TEST_F(OutputTest, WithoutAChannelTheAgentIsNotBlamed) {
  Process program = host("unix:" + (directory / "none"));
  EXPECT_EQ(program.wait(), 1);
  EXPECT_TRUE(has(program.output(), "no channel to the VM within 2000 ms; the lines above say why"))
      << program.output();
  EXPECT_FALSE(has(program.output(), "guest agent"));
}

TEST_F(OutputTest, WithAChannelTheServiceIsMissing) {
  const RawListener vm("tcp:0");
  Process program = host("tcp:127.0.0.1:" + std::to_string(vm.port()));
  EXPECT_EQ(program.wait(), 1);
  EXPECT_TRUE(
      has(program.output(), "no camera service within 2000 ms; start lumsar-camera-service"))
      << program.output();
  EXPECT_FALSE(has(program.output(), "guest agent"));
}

}  // namespace
}  // namespace lumsar::test
