// What a program in the sandbox can no longer do. Each test gives up the rights of a child.
#include "decode/sandbox.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <memory>
#include <new>
#include <vector>

namespace lumsar::test {
namespace {

using agent::enterSandbox;

class Sandbox : public testing::Test {
 protected:
#if defined __SANITIZE_ADDRESS__ || defined __SANITIZE_THREAD__
  void SetUp() override {
    GTEST_SKIP() << "sanitizers need more than a decoder";
  }
#endif
};

TEST_F(Sandbox, OpensNoFile) {
  EXPECT_EXIT(
      {
        enterSandbox(STDOUT_FILENO);
        open("/dev/null", O_RDONLY);
        std::_Exit(0);
      },
      testing::KilledBySignal(SIGSYS), "");
}

TEST_F(Sandbox, ConnectsToNothing) {
  EXPECT_EXIT(
      {
        enterSandbox(STDOUT_FILENO);
        socket(AF_INET, SOCK_STREAM, 0);
        std::_Exit(0);
      },
      testing::KilledBySignal(SIGSYS), "");
}

TEST_F(Sandbox, StartsNothing) {
  EXPECT_EXIT(
      {
        enterSandbox(STDOUT_FILENO);
        execl("/bin/true", "true", nullptr);
        std::_Exit(0);
      },
      testing::KilledBySignal(SIGSYS), "");
}

TEST_F(Sandbox, SignalsNoOther) {
  EXPECT_EXIT(
      {
        enterSandbox(STDOUT_FILENO);
        kill(1, 0);
        std::_Exit(0);
      },
      testing::KilledBySignal(SIGSYS), "");
}

TEST_F(Sandbox, SignalsNoOtherByItsThreads) {
  const pid_t other = getpid();
  EXPECT_EXIT(
      {
        enterSandbox(STDOUT_FILENO);
        tgkill(other, other, 0);
        std::_Exit(0);
      },
      testing::KilledBySignal(SIGSYS), "");
}

TEST_F(Sandbox, ReadsAndWritesItsSocketOnly) {
  EXPECT_EXIT(
      {
        enterSandbox(STDOUT_FILENO);
        if (write(STDERR_FILENO, "x", 1) == 1) std::_Exit(0);
        std::_Exit(1);
      },
      testing::KilledBySignal(SIGSYS), "");
}

TEST_F(Sandbox, MakesNoCode) {
  EXPECT_EXIT(
      {
        enterSandbox(STDOUT_FILENO);
        mmap(nullptr, 4096, PROT_READ | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        std::_Exit(0);
      },
      testing::KilledBySignal(SIGSYS), "");
}

TEST_F(Sandbox, HasBoundedMemory) {
  EXPECT_EXIT(
      {
        enterSandbox(STDOUT_FILENO);
        const std::unique_ptr<char[]> much(new (std::nothrow) char[std::size_t{2} << 30U]);
        std::_Exit(much ? 0 : 7);
      },
      testing::ExitedWithCode(7), "");
}

TEST_F(Sandbox, CanDoADecodersWork) {
  EXPECT_EXIT(
      {
        enterSandbox(STDOUT_FILENO);
        std::vector<char> image(20 << 20);
        image[image.size() / 2] = 1;
        std::_Exit(write(STDOUT_FILENO, "", 0) == 0 ? 5 : 0);
      },
      testing::ExitedWithCode(5), "");
}

}  // namespace
}  // namespace lumsar::test
