// The host as a person uses it, on a terminal. There is no camera service, so events come by
// themselves: it says again and again, after growing pauses, that it cannot connect.
#include <gtest/gtest.h>

#include "unit/host/app/terminal.h"

namespace lumsar::host {
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
  ConsoleTest() { EXPECT_TRUE(terminal.shows(kPrompt)); }

  std::string channel = testing::TempDir() + "/lumsar-no-such-service";
  Terminal terminal{{LUMSAR_HOST, "--vm", "unix:" + channel + ".vm", "--ipc-channel", channel}};
};

TEST_F(ConsoleTest, ExplainsItsCommandsAndStatusCodes) {
  terminal.type("help\n");
  EXPECT_TRUE(terminal.shows("help: done (0)"));
  EXPECT_TRUE(terminal.shows("share-tcp ID HOST PORT"));
  terminal.type("list\n");
  EXPECT_TRUE(terminal.shows("list: the camera service is not connected (30)"));
  terminal.type("status\n");
  EXPECT_TRUE(terminal.shows("\"serviceConnected\": false"));
  EXPECT_TRUE(terminal.shows("the camera service is not running on this channel (103)"));
}

TEST_F(ConsoleTest, TriesAgainAfterAGrowingPause) {
  EXPECT_TRUE(terminal.shows("retrying in 800 ms"));
  const std::string& screen = terminal.screen();
  const std::size_t first = screen.find("retrying in 200 ms");
  const std::size_t second = screen.find("retrying in 400 ms");
  EXPECT_LT(first, second) << screen;
  EXPECT_LT(second, screen.find("retrying in 800 ms")) << screen;
}

TEST_F(ConsoleTest, SaysHowACommandIsWritten) {
  for (const char* line : {"share", "share-tcp 0 host", "share-all x", "share-all 1x", "unshare",
                           "policy", "share-all 99999999999"}) {
    terminal.type(std::string(line) + "\n");
    EXPECT_TRUE(terminal.shows(std::string(line) + ": the command lacks an item (12)")) << line;
    EXPECT_TRUE(terminal.shows("usage: ")) << line;
  }
}

TEST_F(ConsoleTest, AnEventLeavesTheLineThatIsBeingTyped) {
  terminal.type("hel");
  EXPECT_TRUE(terminal.shows("hel"));
  EXPECT_TRUE(terminal.shows(kEvent));
  EXPECT_TRUE(terminal.shows("\n" + std::string(kPrompt) + "hel")) << "drawn again below it";
  terminal.type("p\n");
  EXPECT_TRUE(terminal.shows("help: done (0)"));
}

TEST_F(ConsoleTest, EveryLineCanBeEdited) {
  for (const char* line : {"first", "second", "third"}) {
    terminal.type("x" + std::string(line) + kToLineBegin + kDeleteOrEnd + "\n");
    EXPECT_TRUE(terminal.shows(std::string(line) + ": unknown command (7)"));
  }
  EXPECT_EQ(terminal.screen().find("xthird:"), std::string::npos);
  terminal.type(std::string(kUp) + kUp + kErase + "\n");
  EXPECT_TRUE(terminal.shows("secon: unknown command (7)")) << "the line before the latest";
}

TEST_F(ConsoleTest, AnEventDoesNotBringBackTheLastLine) {
  terminal.type("dance\n");
  EXPECT_TRUE(terminal.shows("dance: unknown command (7)"));
  EXPECT_TRUE(terminal.shows(kEvent));
  EXPECT_TRUE(terminal.shows(kPrompt));
  terminal.type("list\n");
  EXPECT_TRUE(terminal.shows("list: the camera service"));
  const std::string typed = std::string(kPrompt) + "dance";
  EXPECT_EQ(terminal.screen().find(typed), terminal.screen().rfind(typed)) << terminal.screen();
}

TEST_F(ConsoleTest, CtrlCEndsItAndGivesTheTerminalBack) {
  terminal.type("help\n");
  EXPECT_TRUE(terminal.shows("help: done (0)"));
  terminal.type("half a line");
  EXPECT_TRUE(terminal.shows("half a line"));
  EXPECT_FALSE(terminal.isCooked());
  terminal.type(kInterrupt);
  EXPECT_EQ(terminal.wait(), 0);
  EXPECT_TRUE(terminal.isCooked());
}

TEST_F(ConsoleTest, CtrlDOnAnEmptyLineEndsIt) {
  terminal.type("help\n");
  EXPECT_TRUE(terminal.shows("help: done (0)"));
  EXPECT_TRUE(terminal.shows(kPrompt));
  terminal.type(kDeleteOrEnd);
  EXPECT_EQ(terminal.wait(), 0);
  EXPECT_TRUE(terminal.isCooked());
}

TEST_F(ConsoleTest, QuitEndsIt) {
  terminal.type("quit\n");
  EXPECT_EQ(terminal.wait(), 0);
  EXPECT_TRUE(terminal.isCooked());
}

}  // namespace
}  // namespace lumsar::host
