// The binary: exit statuses, clean ends by signals, files that may not grow, and the static one
// alone in an empty root.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>

#include "base/net/socket_listener.h"
#include "support/process.h"
#include "support/raw_peer.h"
#include "support/resources.h"
#include "support/temporary_directory.h"
#include "support/text.h"

namespace lumsar::test {
namespace {

// lumsar-agent, with its standard error apart.
Process agentWith(Process::Words words, const std::function<void()>& before = {}) {
  words.insert(words.begin(), LUMSAR_AGENT);
  return Process(words, {.errorsApart = true, .before = before});
}

TEST(Process, TellsItsVersionAndHelp) {
  Process version = agentWith({"--version"});
  EXPECT_EQ(version.wait(), 0);
  EXPECT_TRUE(version.output().starts_with("lumsar-agent "));
  Process help = agentWith({"--help"});
  EXPECT_EQ(help.wait(), 0);
  EXPECT_TRUE(has(help.output(), "Usage: lumsar-agent"));
}

TEST(Process, AWrongCommandLineEndsWithTwo) {
  Process child = agentWith({"--protocol", "carrier-pigeon"});
  EXPECT_EQ(child.wait(), 2);
  EXPECT_TRUE(has(child.errors(), "expected spice or rdp. See lumsar-agent --help"));
}

TEST(Process, TheStaticOneDoesWithoutPipewire) {
  if (std::string(LUMSAR_AGENT_STATIC).empty()) GTEST_SKIP() << "the static one is not built";
  Process child({LUMSAR_AGENT_STATIC, "--pipewire"}, {.errorsApart = true});
  EXPECT_EQ(child.wait(), 2);
  EXPECT_TRUE(
      has(child.errors(), "the static program does not support --pipewire; use the dynamic one"))
      << child.errors();
}

#ifndef LUMSAR_AGENT_PIPEWIRE
TEST(Process, OneThatIsBuiltWithoutPipewireNamesWhatIsMissing) {
  Process child = agentWith({"--pipewire"});
  EXPECT_EQ(child.wait(), 2);
  EXPECT_TRUE(has(child.errors(),
                  "this lumsar-agent was built without PipeWire; build it where "
                  "libpipewire-0.3-dev is installed, or use --v4l2"))
      << child.errors();
}
#endif

TEST(Process, AnAddressThatIsNoneEndsWithTwo) {
  for (const char* address : {"foo", "tcp:", "tcp:not-a-number:80", "unix:", ""}) {
    for (const char* option : {"--listen", "--listen-direct"}) {
      Process child = agentWith({option, address, "--duration", "1ms"});
      EXPECT_EQ(child.wait(), 2) << option << " '" << address << "'";
    }
  }
}

TEST(Process, VideoDevicesThatCannotBeUsedAreNamedAtTheStart) {
  Process child = agentWith(
      {"--listen", "tcp:0", "--v4l2=/dev/missing", "--v4l2=/dev/null", "--duration", "1ms"});
  EXPECT_EQ(child.wait(), 0) << "they may come later";
  EXPECT_TRUE(has(child.errors(),
                  "/dev/missing cannot be used yet: No such file or directory; "
                  "load the module v4l2loopback"))
      << child.errors();
  EXPECT_TRUE(has(child.errors(), "/dev/null cannot be used yet: it is not a v4l2loopback device"));
}

TEST(Process, AFailureEndsWithOne) {
  Process child = agentWith({"--listen", "unix:/does/not/exist.sock"});
  EXPECT_EQ(child.wait(), 1);
  EXPECT_TRUE(has(child.errors(), "cannot listen on unix:/does/not/exist.sock: No such file"));
}

TEST(Process, ATakenPortEndsWithOne) {
  const auto taken = base::SocketListener::at(base::Address::loopback(0));
  const std::string& address = taken.name();
  Process direct = agentWith({"--listen-direct", address});
  EXPECT_EQ(direct.wait(), 1);
  EXPECT_TRUE(has(direct.errors(), "Address already in use; stop the program that uses it"));
  Process view =
      agentWith({"--listen-direct", "tcp:0", "--view", address.substr(address.rfind(':') + 1)});
  EXPECT_EQ(view.wait(), 1);
  EXPECT_TRUE(has(view.errors(), "Address already in use"));
}

TEST(Process, OnATerminalItEndsWithATableOfItsCameras) {
  const TemporaryDirectory folder;
  const std::string socket = "unix:" + (folder / "vm.sock");
  Process child({LUMSAR_AGENT, "--listen", socket, "--discard"}, {.terminal = true});
  EXPECT_TRUE(child.says("waiting for a host"));
  RawPeer host(socket);
  ASSERT_TRUE(host.handshake());
  host.send(announce(1, "Front"));
  ASSERT_TRUE(host.receiveRecord(CameraDataKind::Start, 1));
  EXPECT_EQ(child.stop(SIGINT), 0);
  EXPECT_TRUE(child.says("  CAMERA  ID    SIZE     FRAMES  SHOWN  DROPPED  LOST  DAMAGED"))
      << child.output();
  EXPECT_TRUE(has(child.output(), "  Front   id-1")) << child.output();
}

TEST(Process, WithoutCamerasItSaysSo) {
  Process child({LUMSAR_AGENT, "--listen", "tcp:0", "--duration", "1ms"}, {.terminal = true});
  EXPECT_EQ(child.wait(), 0);
  EXPECT_TRUE(has(child.output(), "no camera was shared")) << child.output();
}

TEST(Process, ElsewhereNothingIsPrintedAtTheEnd) {
  Process child = agentWith({"--listen", "tcp:0", "--duration", "1ms"});
  EXPECT_EQ(child.wait(), 0);
  EXPECT_EQ(child.output(), "");
}

class SignalTest : public testing::TestWithParam<int> {};

TEST_P(SignalTest, EndsCleanly) {
  const TemporaryDirectory folder;
  const std::string socket = folder / "vm.sock";
  Process child = agentWith({"--listen", "unix:" + socket, "--save-mjpeg", folder / "saved",
                             "--json", "--status-file", folder / "status.json"});
  RawPeer host("unix:" + socket);
  struct stat file {};
  ASSERT_EQ(stat(socket.c_str(), &file), 0);
  EXPECT_EQ(file.st_mode & 0777U, 0600U);
  ASSERT_TRUE(host.handshake());
  host.send(announce(1, "Front"));
  ASSERT_TRUE(host.receiveRecord(CameraDataKind::Start, 1));
  for (std::uint32_t i = 0; i < 5; ++i) host.send(frame(1, i, blankJpeg(3000)));
  ASSERT_TRUE(eventually([&] { return readFile(folder / "saved/Front-1.mjpeg").size() == 15000; }));
  EXPECT_EQ(child.stop(GetParam()), 0);
  EXPECT_TRUE(host.receiveRecord(CameraDataKind::Stop, 1));
  EXPECT_TRUE(has(child.output(), R"("frames":5,"bytes":15000,"lost":0,"dropped":0)"))
      << child.output();
  EXPECT_EQ(folder.files(), (std::vector<std::string>{"saved", "status.json"}));
}

INSTANTIATE_TEST_SUITE_P(All, SignalTest, testing::Values(SIGINT, SIGTERM, SIGHUP));

TEST(Process, AFileThatMayNotGrowIsAnErrorAndNotTheEnd) {
  const TemporaryDirectory folder;
  const std::string socket = folder / "vm.sock";
  Process child =
      agentWith({"--listen", "unix:" + socket, "--save-mjpeg", folder.path(), "--json"}, [] {
        const rlimit limit{10000, 10000};
        setrlimit(RLIMIT_FSIZE, &limit);
      });
  RawPeer host("unix:" + socket);
  ASSERT_TRUE(host.handshake());
  host.send(announce(1, "Front"));
  ASSERT_TRUE(host.receiveRecord(CameraDataKind::Start, 1));
  for (std::uint32_t i = 0; i < 4; ++i) host.send(frame(1, i, blankJpeg(3000)));
  EXPECT_TRUE(child.says("File too large; it is no longer saved"));
  EXPECT_TRUE(host.receiveRecord(CameraDataKind::Stop, 1));
  EXPECT_EQ(readFile(folder / "Front-1.mjpeg").size(), 9000U);  // complete frames only
  EXPECT_EQ(child.stop(SIGTERM), 0);
}

TEST(Process, AHangingDiskHoldsABoundedNumberOfBytes) {
  const TemporaryDirectory folder;
  const std::string socket = folder / "vm.sock";
  ASSERT_EQ(mkfifo((folder / "Front-1.mjpeg").c_str(), 0600), 0);  // nobody reads it
  Process child = agentWith({"--listen", "unix:" + socket, "--save-mjpeg", folder.path()});
  RawPeer host("unix:" + socket);
  ASSERT_TRUE(host.handshake());
  host.send(announce(1, "Front"));
  ASSERT_TRUE(host.receiveRecord(CameraDataKind::Start, 1));
  const Bytes large = blankJpeg(30U << 20U);
  for (std::uint32_t i = 0; i < 12; ++i) ASSERT_TRUE(host.send(frame(1, i, large)));
  host.send(hello(2));
  Bytes answer;
  do {
    answer = host.receive();
    ASSERT_FALSE(answer.empty());
  } while (headerOf(answer).type != MSG_HELLO);  // by then everything has been read
  EXPECT_TRUE(kMemoryIsTheSanitizers || child.peakMemory() < 200L << 10) << child.peakMemory();
}

TEST(Process, APeerDoesNotFloodTheLog) {
  const TemporaryDirectory folder;
  const std::string socket = folder / "vm.sock";
  Process child = agentWith({"--listen", "unix:" + socket, "--discard"});
  const RawPeer host("unix:" + socket);
  const Bytes turn =
      join({hello(1), message(77), announce(1, "Front"), removed(1), bytesOf("junk")});
  for (int i = 0; i < 1000; ++i) ASSERT_TRUE(host.send(turn));
  host.send(join({hello(4711), announce(2, "Last")}));
  ASSERT_TRUE(host.receiveRecord(CameraDataKind::Start, 2));
  EXPECT_EQ(child.stop(SIGTERM), 0);
  EXPECT_TRUE(has(child.errors(), "(more lines like this one are only counted for a minute)"));
  EXPECT_LT(occurrences(child.errors(), "\n"), 300);
}

TEST(Process, WaitsForDescriptorsWhenThereAreNone) {
  const TemporaryDirectory folder;
  const std::string address = "unix:" + (folder / "direct.sock");
  Process child = agentWith({"--listen-direct", address, "--view", "0", "--discard"}, [] {
    const rlimit limit{13, 13};
    setrlimit(RLIMIT_NOFILE, &limit);
  });
  ASSERT_TRUE(child.says("waiting for camera services on "));
  std::vector<RawPeer> peers;
  for (int i = 0; i < 7; ++i) peers.emplace_back(address);
  EXPECT_TRUE(child.says("Too many open files; trying again"));
  peers.clear();
  EXPECT_TRUE(RawPeer(address).handshake());
  EXPECT_EQ(child.countOf("Too many open files"), 1);
}

TEST(Process, WaitsForAVirtioPortByDefault) {
  Process child = agentWith({"--discard", "--duration", "300ms"});
  EXPECT_EQ(child.wait(), 0);
  EXPECT_TRUE(has(child.errors(), "waiting for a host on virtio port org.lumsar.camera.0"));
}

TEST(StaticProgram, WorksAloneInAnEmptyRoot) {
  const std::string program = LUMSAR_AGENT_STATIC;
  if (program.empty()) GTEST_SKIP() << "the static program is not built with sanitizers";
  if (geteuid() != 0) GTEST_SKIP() << "only root can change the root";
  const TemporaryDirectory root;
  std::filesystem::copy_file(program, root / "lumsar-agent");
  Process child(
      {"/lumsar-agent", "--listen", "unix:/vm.sock", "--save", "/saved", "--json", "--view", "0"},
      {.errorsApart = true, .before = [path = root.path()] {
         if (chroot(path.c_str()) != 0 || chdir("/") != 0) _exit(126);
       }});
  RawPeer host("unix:" + (root / "vm.sock"));
  ASSERT_TRUE(host.handshake());
  host.send(announce(1, "Front"));
  ASSERT_TRUE(host.receiveRecord(CameraDataKind::Start, 1));
  host.send(frame(1, 0, blankJpeg()));
  EXPECT_TRUE(
      eventually([&] { return std::filesystem::exists(root / "saved/Front-1-000001.jpg"); }));
  EXPECT_EQ(child.stop(SIGINT), 0) << child.errors();
  EXPECT_TRUE(has(child.output(), R"("savedFiles":1)"));
}

}  // namespace
}  // namespace lumsar::test
