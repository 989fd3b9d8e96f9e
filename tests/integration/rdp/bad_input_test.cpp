// What no VM and no machine should do to the RDP host: a clear message, bounded memory, and the
// next session works.
#include <filesystem>

#include "integration/rdp/rig.h"

namespace lumsar::test {
namespace {

class RdpBadInput : public Rig {};

TEST_F(RdpBadInput, GarbageBetweenMessages) {
  start();
  ASSERT_TRUE(server->waitForClient());
  server->send(noise(5000, 1));
  handshake();
  server->send(noise(3000, 2));
  expectAtService(noise(100, 3));
  EXPECT_TRUE(host->says("bytes that are not a message; dropped"));
  stopHost();
  EXPECT_EQ(host->countOf("\"strayBytes\":8000"), 1);
}

TEST_F(RdpBadInput, LengthOverTheLimit) {
  startSession();
  Bytes begin = message(MSG_DATA);
  const std::uint32_t length = 0x80000000U;
  std::memcpy(begin.data() + 8, &length, sizeof length);
  server->send(begin);
  for (int i = 0; i < 40; ++i) server->send(Bytes(1U << 20U, 0xEE));
  const auto hello = askForHello();
  ASSERT_TRUE(hello);
  EXPECT_TRUE(host->says("bytes that are not a message; dropped"));
  expectGrowthBelow(24L * 1024);
  answer(*hello);
  EXPECT_TRUE(service->messages().nextOf(IPC_MSG_POLICY));
}

// A message of the largest size that is never finished, and more bytes than that, none of which
// ends anything.
TEST_F(RdpBadInput, PiecesThatNeverEnd) {
  startSession();
  Bytes begin = message(MSG_DATA);
  std::memcpy(begin.data() + 8, &kMaxPayload, sizeof kMaxPayload);
  server->send(begin);
  const Bytes piece = noise(1U << 20U, 5);
  for (int i = 0; i < 160; ++i) server->send(piece);
  server->send(message(MSG_DATA, noise(64, 6)));
  while (true) {
    const auto data = service->messages().nextOf(IPC_MSG_DATA);
    ASSERT_TRUE(data);
    if (payloadOf(*data) == noise(64, 6)) break;
  }
  expectGrowthBelow(200L * 1024);  // the message as it grows, and twice more where it is passed on
  handshake();
}

// The VM sends more than the camera service takes at once: it has to wait.
TEST_F(RdpBadInput, FloodToASlowService) {
  std::vector<Bytes> payloads;
  for (std::uint32_t i = 0; i < 120; ++i) payloads.push_back(noise(1U << 20U, i));
  startSession();
  service->stall(true);
  for (const Bytes& payload : payloads) server->send(message(MSG_DATA, payload));
  std::this_thread::sleep_for(milliseconds(400));  // less than makes the host give up
  service->stall(false);
  for (std::size_t i = 0; i < payloads.size(); ++i) {
    const auto data = service->messages().nextOf(IPC_MSG_DATA);
    ASSERT_TRUE(data);
    ASSERT_EQ(payloadOf(*data), payloads[i]) << i;
  }
  expectGrowthBelow(24L * 1024);
}

// A stalled service is dropped, and what the VM sends until then must not pile up. Whether the
// message that cannot be passed on or the regular question meets it first is a matter of chance.
TEST_F(RdpBadInput, FloodWhileTheServiceHangs) {
  startSession();
  service->stall(true);
  for (std::uint32_t i = 0; i < 120; ++i) {
    server->send(message(MSG_DATA, noise(1U << 20U, i)));
  }
  EXPECT_TRUE(host->says("camera service lost: it "));
  expectGrowthBelow(24L * 1024);
  service->stall(false);
  // On a busy machine the host may have connected and given up again meanwhile, each time with a
  // HELLO: the latest counts.
  EXPECT_TRUE(eventually([this] {
    if (const auto bytes = server->messages().nextOf(MSG_HELLO, milliseconds(100))) {
      View payload = View(*bytes).subspan(kHeaderSize);
      answer(*take<HelloPayload>(payload));
    }
    return service->messages().nextOf(IPC_MSG_POLICY, milliseconds(1)).has_value();
  }));
  expectAtVm(noise(3000, 7));
}

// Each beginning costs an answer of the service; those of such a VM are not all taken.
TEST_F(RdpBadInput, VmThatBeginsAgainAndAgain) {
  startSession();
  for (int i = 0; i < 5000; ++i) server->send(message(MSG_CHANNEL_OPENED));
  EXPECT_TRUE(
      host->says("the VM restarts the handshake again and again; not all of it is answered"));
  ASSERT_TRUE(server->messages().nextOf(MSG_HELLO));
  std::size_t hellos = 1;
  while (server->messages().nextOf(MSG_HELLO, seconds(1))) ++hellos;
  EXPECT_GT(hellos, 10U);
  EXPECT_LT(hellos, 30U);
}

// The desktop has no consumer, and nothing of it may be kept.
TEST_F(RdpBadInput, DesktopWithoutEnd) {
  startSession();
  server->paint(1'000'000);
  ASSERT_TRUE(server->waitUntilPainted());
  expectAtVm(noise(1000, 1));
  expectGrowthBelow(12L * 1024);
  EXPECT_EQ(server->clients(), 1);
}

TEST_F(RdpBadInput, DesktopOfAnotherSize) {
  startSession();
  server->resizeDesktop(1024, 768);
  server->paint(100);
  ASSERT_TRUE(server->waitUntilPainted());
  expectAtVm(noise(1000, 1));
  server->send(message(MSG_DATA, noise(1000, 2)));
  EXPECT_TRUE(service->messages().nextOf(IPC_MSG_DATA));
  EXPECT_EQ(server->clients(), 1);
}

TEST_F(RdpBadInput, HalfAMessageThenANewSession) {
  startSession();
  Bytes half = message(MSG_DATA, noise(50'000, 1));
  half.resize(20'000);
  server->send(half);
  ASSERT_TRUE(server->settle());
  server->dropClient();
  ASSERT_TRUE(host->says("channel to the VM is open", 2));
  service->messages().clear();
  handshake();
}

TEST_F(RdpBadInput, ChannelThatNobodyOpens) {
  startService();
  RdpServerSetup setup = serverSetup();
  setup.opensChannel = false;
  server.emplace(setup);
  startHost();
  EXPECT_TRUE(
      host->says("the VM sends nothing: is lumsar-agent running in it, and does the server "
                 "allow the channel?"));
  server->openChannel(true);
  handshake();
}

TEST_F(RdpBadInput, HomeThatCannotBeWritten) {
  start({"--ignore-certificate"}, {{"HOME", "/proc/nowhere"}, {"XDG_CONFIG_HOME", ""}});
  beginSession();
}

TEST_F(RdpBadInput, NoRoomForTemporaryFiles) {
  startService();
  startHost({}, {{"TMPDIR", "/proc"}});
  expectEnd(1, "set TMPDIR to a directory that can be written");
}

TEST_F(RdpBadInput, CommandLines) {
  const auto run = [this](const Process::Words& words) {
    Process::Words all{LUMSAR_RDP};
    all.insert(all.end(), words.begin(), words.end());
    return host.emplace(all).wait();
  };
  EXPECT_EQ(run({"--help"}), 0);
  EXPECT_EQ(run({}), 2);
  for (const char* address : {"a host", "host:0", "host:99999", "unix:", "[::1"}) {
    EXPECT_EQ(run({address}), 2) << address;
  }
  EXPECT_EQ(run({"host", "--accept-certificate", "12:34"}), 2);
  EXPECT_EQ(host->countOf("is not a valid SHA-256 fingerprint"), 1);
  EXPECT_EQ(run({"host", "--credentials", "/nowhere"}), 1);
  EXPECT_EQ(host->countOf("cannot read credentials from /nowhere"), 1);
}

}  // namespace
}  // namespace lumsar::test
