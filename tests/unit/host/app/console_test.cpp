// The host as a person uses it, on a terminal. There is no camera service, so events come by
// themselves: it says again and again, after growing pauses, that it cannot connect.
#include <gtest/gtest.h>

#include "support/process.h"

namespace lumsar::test {
namespace {

constexpr const char* kPrompt = "lumsar> ";
constexpr const char* kEvent = "no camera service";
constexpr const char* kToLineBegin = "\x01";
constexpr const char* kDeleteOrEnd = "\x04";  // Ctrl-D
constexpr const char* kInterrupt = "\x03";    // Ctrl-C
constexpr const char* kUp = "\x1b[A";
constexpr const char* kErase = "\x7f";

class ConsoleTest : public testing::Test {
 protected:
  ConsoleTest() { EXPECT_TRUE(terminal.expect(kPrompt)); }

  std::string channel = testing::TempDir() + "/lumsar-no-such-service";
  Process terminal{{LUMSAR_HOST, "--vm", "unix:" + channel + ".vm", "--ipc-channel", channel},
                   {.environment = {{"TERM", "xterm"}}, .terminal = true}};
};

TEST_F(ConsoleTest, ExplainsItsCommandsAndStatusCodes) {
  terminal.write("help\n");
  EXPECT_TRUE(terminal.expect("help: done (0)"));
  EXPECT_TRUE(terminal.expect("share-tcp ID HOST PORT"));
  terminal.write("list\n");
  EXPECT_TRUE(terminal.expect("list: the camera service is not connected (30)"));
  terminal.write("status\n");
  EXPECT_TRUE(terminal.expect("camera service     not connected"));
  EXPECT_TRUE(terminal.expect("the camera service is not running on this channel (103)"));
}

TEST_F(ConsoleTest, TriesAgainAfterAGrowingPause) {
  EXPECT_TRUE(terminal.expect("retrying in 800 ms"));
  const std::string& screen = terminal.output();
  const std::size_t first = screen.find("retrying in 200 ms");
  const std::size_t second = screen.find("retrying in 400 ms");
  EXPECT_LT(first, second) << screen;
  EXPECT_LT(second, screen.find("retrying in 800 ms")) << screen;
}

TEST_F(ConsoleTest, SaysHowACommandIsWritten) {
  for (const char* line : {"share", "share-tcp 0 host", "share-all x", "share-all 1x", "unshare",
                           "policy", "share-all 99999999999"}) {
    terminal.write(std::string(line) + "\n");
    EXPECT_TRUE(terminal.expect(std::string(line) + ": the command lacks an item (12)")) << line;
    EXPECT_TRUE(terminal.expect("usage: ")) << line;
  }
}

TEST_F(ConsoleTest, AnEventLeavesTheLineThatIsBeingTyped) {
  terminal.write("hel");
  EXPECT_TRUE(terminal.expect("hel"));
  EXPECT_TRUE(terminal.expect(kEvent));
  EXPECT_TRUE(terminal.expect("\n" + std::string(kPrompt) + "hel")) << "drawn again below it";
  terminal.write("p\n");
  EXPECT_TRUE(terminal.expect("help: done (0)"));
}

TEST_F(ConsoleTest, EveryLineCanBeEdited) {
  for (const char* line : {"first", "second", "third"}) {
    terminal.write("x" + std::string(line) + kToLineBegin + kDeleteOrEnd + "\n");
    EXPECT_TRUE(terminal.expect(std::string(line) + ": unknown command (7)"));
  }
  EXPECT_EQ(terminal.output().find("xthird:"), std::string::npos);
  terminal.write(std::string(kUp) + kUp + kErase + "\n");
  EXPECT_TRUE(terminal.expect("secon: unknown command (7)")) << "the line before the latest";
}

TEST_F(ConsoleTest, AnEventDoesNotBringBackTheLastLine) {
  terminal.write("dance\n");
  EXPECT_TRUE(terminal.expect("dance: unknown command (7)"));
  EXPECT_TRUE(terminal.expect(kEvent));
  EXPECT_TRUE(terminal.expect(kPrompt));
  terminal.write("list\n");
  EXPECT_TRUE(terminal.expect("list: the camera service"));
  const std::string typed = std::string(kPrompt) + "dance";
  EXPECT_EQ(terminal.output().find(typed), terminal.output().rfind(typed)) << terminal.output();
}

TEST_F(ConsoleTest, CtrlCEndsItAndGivesTheTerminalBack) {
  terminal.write("help\n");
  EXPECT_TRUE(terminal.expect("help: done (0)"));
  terminal.write("half a line");
  EXPECT_TRUE(terminal.expect("half a line"));
  EXPECT_FALSE(terminal.isTerminalCooked());
  terminal.write(kInterrupt);
  EXPECT_EQ(terminal.wait(), 0);
  EXPECT_TRUE(terminal.isTerminalCooked());
}

TEST_F(ConsoleTest, CtrlDOnAnEmptyLineEndsIt) {
  terminal.write("help\n");
  EXPECT_TRUE(terminal.expect("help: done (0)"));
  EXPECT_TRUE(terminal.expect(kPrompt));
  terminal.write(kDeleteOrEnd);
  EXPECT_EQ(terminal.wait(), 0);
  EXPECT_TRUE(terminal.isTerminalCooked());
}

TEST_F(ConsoleTest, QuitEndsIt) {
  terminal.write("quit\n");
  EXPECT_EQ(terminal.wait(), 0);
  EXPECT_TRUE(terminal.isTerminalCooked());
}

}  // namespace
}  // namespace lumsar::test
