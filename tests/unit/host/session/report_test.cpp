// What the host says: status codes in words.
#include "session/report.h"

#include <gtest/gtest.h>

#include "base/log.h"
#include "lumsar/ipc_transport.h"
#include "lumsar/plugin.h"

namespace lumsar::test {
namespace {

using namespace host;

TEST(StatusText, saysWhatThePlugInMeans) {
  for (const int status :
       {STATUS_OK, STATUS_INIT_FAILED, STATUS_INVALID_PARAMETER, STATUS_INVALID_MAGIC,
        STATUS_UNKNOWN_COMMAND, STATUS_NOT_JSON, STATUS_MISSING_ITEM, STATUS_NO_OBJECT,
        STATUS_REPLY_TOO_LARGE, STATUS_NOT_INITIALIZED, STATUS_ALREADY_INITIALIZED,
        STATUS_NOT_CONNECTED, STATUS_DISCONNECTED, STATUS_ALREADY_CONNECTED,
        STATUS_LIST_CALL_FAILED, STATUS_LIST_ERROR, STATUS_EXCEPTION}) {
    EXPECT_FALSE(statusText(status).starts_with("unknown status")) << status;
  }
  EXPECT_EQ(statusText(STATUS_NOT_CONNECTED), "the camera service is not connected (30)");
}

TEST(StatusText, saysWhatTheIpcLibraryMeans) {
  for (int code = IPC_ERROR_PARAMETER; code <= IPC_ERROR_DISCONNECTED; ++code) {
    EXPECT_EQ(statusText(code),
              std::string(ipcErrorText(code)) + " (" + std::to_string(code) + ")");
  }
}

TEST(StatusText, keepsTheNumberOfWhatNobodyKnows) {
  EXPECT_EQ(statusText(4711), "unknown status (4711)");
}

struct ReportTest : testing::Test {
  ReportTest() {
    report.setSink([this](const std::string& line) { said = line.substr(13); });  // after the time
  }
  Report report{true};
  std::string said;
};

TEST_F(ReportTest, whatComesFromOutsideReachesNoTerminalAsItIs) {
  report.say("device change: a\x1b[31m\x7f\xc2\x9b\xe2\x80\xae\nforged");
  EXPECT_EQ(said, "device change: a [31m    forged");
}

TEST_F(ReportTest, anAnswerKeepsItsLinesOnly) {
  report.say("list: done (0)", "  0  a\x1b\n  1  b\x7f");
  EXPECT_EQ(said, "list: done (0)\n  0  a \n  1  b ");
}

TEST_F(ReportTest, whatPeersRepeatIsCountedOnly) {
  std::size_t lines = 0;
  std::string last;
  report.setSink([&](const std::string& line) {
    ++lines;
    last = line.substr(13);
  });
  for (int i = 1; i <= 1000; ++i) report.note("device change: ", std::to_string(i));
  EXPECT_EQ(lines, base::kMaxRepeatedLines);
  EXPECT_EQ(last, "device change: 20 (more lines like this one are only counted for a minute)");
  report.note("VM answered, version ", "1.1");
  EXPECT_EQ(last, "VM answered, version 1.1");
  for (int i = 0; i < 1000; ++i) report.say("list: done (0)");
  EXPECT_EQ(lines, base::kMaxRepeatedLines + 1001);
}

TEST_F(ReportTest, aLineIsCut) {
  report.say(std::string(1U << 20U, 'x'));
  EXPECT_EQ(said.size(), base::kLongestLogLine);
}

}  // namespace
}  // namespace lumsar::test
