// The whole program in this process, with camera services that connect without a host: who may, and
// how many.
#include <sys/stat.h>
#include <unistd.h>

#include "base/net/address.h"
#include "support/process.h"
#include "unit/agent/program_fixture.h"

namespace lumsar::test {
namespace {

class DirectTest : public ProgramFixture {
 protected:
  std::string startDirect() {
    options.listen.clear();
    options.listenDirect = "tcp:0";
    start();
    return (*program)->directAddress();
  }
};

TEST_F(DirectTest, SeveralServicesComeByThemselves) {
  const std::string address = startDirect();
  RawPeer one(address);
  const RawPeer two(address);
  ASSERT_TRUE(one.handshake(11));
  ASSERT_TRUE(two.handshake(12));
  expectStart(one, 1);
  expectStart(two, 1);
  one.close();
  two.send(frame(1, 0, blankJpeg()));
  const auto status = [this] { return readFile(options.statusFile); };
  EXPECT_TRUE(eventually([&] {
    return has(status(), R"("name":"Camera","vendorId":0,"productId":0,"present":false)");
  }));
  EXPECT_TRUE(has(status(), R"("name":"service 2")"));
}

TEST_F(DirectTest, PeersMakeRoomForServices) {
  options.endpoint.helloTimeout = milliseconds(300);
  const std::string address = startDirect();
  std::vector<RawPeer> peers;
  for (int i = 0; i < 16; ++i) peers.emplace_back(address);
  EXPECT_TRUE(eventually([&] { return RawPeer(address).handshake(); }));
}

TEST_F(DirectTest, OneHostDoesNotTakeAllPlaces) {
  options.endpoint.helloTimeout = kTimeout;
  const std::string address = startDirect();
  std::vector<RawPeer> peers;
  for (int i = 0; i < 16; ++i) peers.emplace_back(address);
  const base::SocketAddress from = base::toSockaddr({{}, "127.0.0.2", 0});
  const base::SocketAddress to = base::toSockaddr(base::parseAddress(address));
  UniqueFd socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  ASSERT_EQ(bind(socket.get(), from.get(), from.size), 0);
  ASSERT_EQ(connect(socket.get(), to.get(), to.size), 0);
  const RawPeer other(std::move(socket));
  other.send(hello(1));
  EXPECT_EQ(other.receive().size(), 36U);
}

TEST_F(DirectTest, APeerThatAnnouncesNothingIsDisconnected) {
  options.idleTimeout = milliseconds(300);
  const std::string address = startDirect();
  const RawPeer service(address);
  ASSERT_TRUE(service.handshake());
  expectStart(service, 1);
  const RawPeer idle(address);
  ASSERT_TRUE(idle.handshake());
  EXPECT_TRUE(idle.ended());
  service.send(removed(1));
  expectStart(service, 2);
}

TEST_F(DirectTest, WithATokenOnlyWhoSendsItMayConnect) {
  writeFile(folder / "token", "0123456789abcdef\n");
  chmod((folder / "token").c_str(), 0600);
  options.tokenFile = folder / "token";
  const std::string address = startDirect();
  const RawPeer stranger(address);
  stranger.send(hello(1));
  EXPECT_TRUE(stranger.ended());
  const RawPeer service(address);
  service.send(bytesOf("LUMSAR-ACCESS 0123456789abcdef\n"));
  ASSERT_TRUE(service.handshake());
  expectStart(service, 1);
}

TEST_F(DirectTest, OtherUsersOfThisMachineMayNotConnect) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can become somebody else";
  const std::string address = startDirect();
  std::string greeting;
  for (const unsigned char byte : hello(1)) greeting += base::text("\\x{:02x}", byte);
  const std::string script = base::text(
      "exec 3<>/dev/tcp/127.0.0.1/{} || exit 7; printf '{}' >&3; "
      "read -r -N 1 -u 3",  // fails at the end of the stream
      address.substr(address.rfind(':') + 1), greeting);
  Process other({"/bin/bash", "-c", script}, {.before = [] {
                  if (setuid(12345) != 0) _exit(9);
                }});
  EXPECT_EQ(other.wait(), 1) << other.output();
  EXPECT_TRUE(RawPeer(address).handshake());
}

TEST_F(DirectTest, NeverAsksForAllCameras) {
  options.endpoint.shareAll = true;
  const RawPeer service(startDirect());
  service.send(hello(1));
  EXPECT_EQ(headerOf(service.receive()).capabilities, 3U);
}

}  // namespace
}  // namespace lumsar::test
