// The parts of the support on which many tests rely without looking.
#include <gtest/gtest.h>

#include <csignal>

#include "support/process.h"
#include "support/slow_line.h"
#include "support/temporary_directory.h"

namespace lumsar::test {
namespace {

TEST(Process, TellsHowItsProgramEnded) {
  EXPECT_EQ(Process({"/bin/sh", "-c", "exit 3"}).wait(), 3);
  EXPECT_EQ(Process({"/bin/sh", "-c", "kill -9 $$"}).wait(), 128 + SIGKILL);
  EXPECT_EQ(Process({"/no/such/program"}).wait(), 127);
  Process sleeper({"sleep", "600"});
  EXPECT_EQ(sleeper.wait(milliseconds(1)), -1);
  EXPECT_EQ(sleeper.stop(SIGTERM), 128 + SIGTERM);
  sleeper.signal(SIGKILL);  // reaches nobody any more
}

TEST(Process, KeepsItsOutput) {
  setenv("LUMSAR_A", "a", 1);
  Process all({"/bin/sh", "-c", "echo $LUMSAR_A$LUMSAR_B; echo e >&2; read x; echo $x$x"},
              {.environment = {{"LUMSAR_A", ""}, {"LUMSAR_B", "b"}}, .input = true});
  EXPECT_TRUE(all.expect("b\n"));
  EXPECT_TRUE(all.says("e\n"));
  all.write("y\n");
  EXPECT_TRUE(all.says("y", 2));
  EXPECT_EQ(all.wait(), 0);
  EXPECT_EQ(all.output(), "b\ne\nyy\n");
  EXPECT_FALSE(all.expect("b\n"));
  EXPECT_FALSE(all.says("never"));

  Process apart({"/bin/sh", "-c", "echo o; echo e >&2"}, {.errorsApart = true});
  EXPECT_EQ(apart.wait(), 0);
  EXPECT_EQ(apart.output(), "o\n");
  EXPECT_EQ(apart.errors(), "e\n");
}

TEST(Process, TakesItsChildrenWithIt) {
  std::string child;
  {
    Process parent({"/bin/sh", "-c", "sleep 600 & echo $!.; wait"});
    ASSERT_TRUE(parent.expect("."));
    child = parent.output().substr(0, parent.output().find('.'));
  }
  EXPECT_TRUE(eventually([&] {
    const std::string state = readFile("/proc/" + child + "/stat");
    return state.empty() || state.find(") Z ") != std::string::npos;
  }));
}

TEST(Process, RunsOnATerminal) {
  Process shell({"/bin/sh", "-c", "test -t 0 && read x && echo got $x"}, {.terminal = true});
  EXPECT_TRUE(eventually([&] { return shell.isTerminalCooked(); }));
  shell.write("this\n");
  EXPECT_TRUE(shell.expect("got this"));
  EXPECT_EQ(shell.wait(), 0);
}

TEST(SlowLine, IsSlowInOneDirection) {
  const TemporaryDirectory directory;
  const RawListener server(directory / "server");
  const SlowLine line(directory / "line", directory / "server", 400'000);
  const RawPeer client(directory / "line");
  const RawPeer peer = server.accept();
  ASSERT_TRUE(peer.connected());
  const auto begin = std::chrono::steady_clock::now();
  const Bytes sent = noise(100'000, 1);
  std::jthread sender([&] { client.send(sent); });
  EXPECT_EQ(peer.read(sent.size()), sent);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(200));
  std::jthread answerer([&] { peer.send(sent); });
  EXPECT_EQ(client.read(sent.size()), sent);
}

}  // namespace
}  // namespace lumsar::test
