#include "base/log.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

namespace lumsar::test {
namespace {

using namespace base;

// What `write` logs.
template <class Write>
std::string logged(Write write) {
  testing::internal::CaptureStderr();
  write();
  return testing::internal::GetCapturedStderr();
}

class Log : public testing::Test {
 protected:
  void SetUp() override {
    setProgramName("program");
    setVerbose(false);
    unsetenv("JOURNAL_STREAM");
  }
};

TEST_F(Log, NamesTheProgramAndTheLevel) {
  EXPECT_EQ(logged([] { logInfo("camera {} is on", 3); }), "program: camera 3 is on\n");
  EXPECT_EQ(logged([] { logWarning("slow"); }), "program: warning: slow\n");
  EXPECT_EQ(logged([] { logError("{}", "broken {}"); }), "program: error: broken {}\n");
}

TEST_F(Log, KeepsDetailsForTheVerbose) {
  EXPECT_EQ(logged([] { logDebug("detail"); }), "");
  setVerbose(true);
  EXPECT_EQ(logged([] { logDebug("detail"); }), "program: debug: detail\n");
}

TEST_F(Log, LetsNoTextForgeALine) {
  EXPECT_EQ(logged([] { logInfo("{}", "a\nprogram: forged\r\x1b[2K\xc2\x85\xff"); }),
            "program: a program: forged  [2K ?\n");
}

TEST_F(Log, CutsWhatIsTooLong) {
  const std::string line(kLongestLogLine, 'x');
  EXPECT_EQ(logged([&] { logInfo("{}yyy", line); }), "program: " + line + "\n");
}

TEST_F(Log, CountsLinesOfOneKindThatRepeatTooOften) {
  setRepeatLimit(3);
  const std::string lines = logged([] {
    for (int i = 1; i <= 10; ++i) logWarning("line {}", i);
    logWarning("another kind");
  });
  setRepeatLimit(0);
  EXPECT_EQ(lines,
            "program: warning: line 1\nprogram: warning: line 2\n"
            "program: warning: line 3 (more lines like this one are only counted for a minute)\n"
            "program: warning: another kind\n");
}

TEST_F(Log, WritesPrioritiesForTheJournal) {
  const std::string lines = logged([] {
    struct stat status = {};
    fstat(STDERR_FILENO, &status);
    setenv("JOURNAL_STREAM", text("{}:{}", status.st_dev, status.st_ino).c_str(), 1);
    logError("a");
    logWarning("b");
    logInfo("c\n<3>d");
  });
  EXPECT_EQ(lines, "<3>a\n<4>b\n<6>c <3>d\n");
}

TEST_F(Log, IgnoresTheJournalOfAnotherStream) {
  setenv("JOURNAL_STREAM", "8:12345", 1);
  EXPECT_EQ(logged([] { logInfo("a"); }), "program: a\n");
}

}  // namespace
}  // namespace lumsar::test
