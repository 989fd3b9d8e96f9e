// What a program in the sandbox can no longer do. Each test gives up the rights of a child.
#include "decode/sandbox.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <memory>
#include <new>
#include <thread>
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
  static void expectKilledFor(const std::function<void()>& action) {
    EXPECT_EXIT(
        {
          enterSandbox(STDOUT_FILENO);
          action();
          std::_Exit(0);
        },
        testing::KilledBySignal(SIGSYS), "");
  }
};

TEST_F(Sandbox, OpensNoFile) {
  expectKilledFor([] { open("/dev/null", O_RDONLY); });
}

TEST_F(Sandbox, ConnectsToNothing) {
  expectKilledFor([] { socket(AF_INET, SOCK_STREAM, 0); });
}

TEST_F(Sandbox, StartsNothing) {
  expectKilledFor([] { execl("/bin/true", "true", nullptr); });
}

TEST_F(Sandbox, SignalsNoOther) {
  expectKilledFor([] { kill(1, 0); });
}

TEST_F(Sandbox, SignalsNoOtherByItsThreads) {
  expectKilledFor([other = getpid()] { tgkill(other, other, 0); });
}

TEST_F(Sandbox, ReadsAndWritesItsSocketOnly) {
  expectKilledFor([] {
    if (write(STDERR_FILENO, "x", 1) != 1) std::_Exit(1);
  });
}

TEST_F(Sandbox, MakesNoCode) {
  expectKilledFor(
      [] { mmap(nullptr, 4096, PROT_READ | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0); });
}

TEST_F(Sandbox, UsesNoDevice) {
  expectKilledFor([] { ioctl(STDIN_FILENO, FIONREAD, nullptr); });
}

// Type, number and size as of a request to a graphics device.
constexpr unsigned long kVersionRequest = _IOC(_IOC_READ | _IOC_WRITE, 'd', 0, 64);

TEST_F(Sandbox, MayUseAGraphicsDeviceThatIsOpen) {
  EXPECT_EXIT(
      {
        enterSandbox(STDOUT_FILENO, agent::Devices::Graphics);
        ioctl(STDIN_FILENO, kVersionRequest, nullptr);
        std::_Exit(5);
      },
      testing::ExitedWithCode(5), "");
}

TEST_F(Sandbox, ButNotATerminal) {
  EXPECT_EXIT(
      {
        enterSandbox(STDOUT_FILENO, agent::Devices::Graphics);
        ioctl(STDIN_FILENO, TIOCSTI, "x");
        std::_Exit(0);
      },
      testing::KilledBySignal(SIGSYS), "");
}

TEST_F(Sandbox, HoldsThreadsThatRunAlready) {
  EXPECT_EXIT(
      {
        std::atomic<bool> isClosed = false;
        std::thread driver([&] {
          isClosed.wait(false);
          open("/dev/null", O_RDONLY);
          std::_Exit(0);
        });
        enterSandbox(STDOUT_FILENO);
        isClosed = true;
        isClosed.notify_all();
        driver.join();
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
