#include "base/net/peer.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/net/socket_listener.h"
#include "support/raw_peer.h"
#include "support/temporary_directory.h"

namespace lumsar::test {
namespace {

using namespace base;

TEST(Peer, BelongsToTheUserWhoseSocketItIs) {
  for (const char* host : {"tcp:127.0.0.1:", "tcp:[::1]:"}) {
    const std::string kind = host;
    std::optional<SocketListener> listener;
    try {
      listener.emplace(SocketListener::at(parseAddress(kind + "0")));
    } catch (const Failure&) {
      continue;  // no IPv6 here
    }
    const RawPeer there(listener->name());
    const RawPeer here(UniqueFd(accept(listener->get(), nullptr, nullptr)));
    const Peer peer = peerOf(here.fd());
    EXPECT_TRUE(peer.onThisMachine);
    EXPECT_EQ(peer.user, geteuid()) << kind;
    EXPECT_EQ(peer.host, kind == "tcp:[::1]:" ? "::1" : "127.0.0.1");
    EXPECT_TRUE(isTrustedUser(peer.user));
  }
}

TEST(Peer, OverAUnixSocketHasAUserToo) {
  const TemporaryDirectory folder;
  const RawListener listener(folder / "x.sock");
  const RawPeer there(folder / "x.sock");
  const RawPeer here = listener.accept();
  EXPECT_EQ(peerOf(here.fd()).user, geteuid());
  EXPECT_EQ(peerOf(here.fd()).host, "");
}

TEST(Peer, ThatHasClosedIsNobodys) {
  const RawListener listener("tcp:0");
  RawPeer there("tcp:127.0.0.1:" + std::to_string(listener.port()));
  const RawPeer here = listener.accept();
  there.close();
  EXPECT_TRUE(eventually([&] { return !peerOf(here.fd()).user; }));
  EXPECT_FALSE(isTrustedUser(peerOf(here.fd()).user));
}

TEST(Peer, OfAnotherUserIsNotTrusted) {
  EXPECT_FALSE(isTrustedUser(geteuid() + 1));
  EXPECT_TRUE(isTrustedUser(0));
  if (geteuid() != 0) GTEST_SKIP() << "only root can become somebody else";
  const RawListener listener("tcp:0");
  const std::string address = "tcp:127.0.0.1:" + std::to_string(listener.port());
  const pid_t child = fork();
  if (child == 0) {
    const bool somebody = setuid(12345) == 0;
    const RawPeer there(address);
    _exit(somebody && there.ended() ? 0 : 1);
  }
  {
    const RawPeer here = listener.accept();
    EXPECT_EQ(peerOf(here.fd()).user, 12345U);
  }
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace lumsar::test
