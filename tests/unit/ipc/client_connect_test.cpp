// Tests of client.h: connecting, in the foreground and in the background, and what can go wrong.
// Against a service that does what the test says; the library's threads call the recorder.
#include <sys/resource.h>
#include <sys/socket.h>

#include "base/net/address.h"
#include "ipc/channel_path.h"
#include "unit/ipc/client_fixture.h"

namespace lumsar::test {
namespace {

TEST_F(ClientTest, ConnectReturnsAfterTheWelcome) {
  std::atomic<bool> welcomed = false;
  auto accepted = std::async(std::launch::async, [&] {
    RawPeer peer = service.accept();
    peer.receive();
    welcomed = true;
    peer.send(message(IPC_MSG_CONNECT_ACCEPT));
    return peer;
  });
  EXPECT_EQ(client.connect(path.c_str()), 0);
  EXPECT_TRUE(welcomed);
  EXPECT_TRUE(client.connected());
  EXPECT_TRUE(recorder.awaitConnect());
  EXPECT_NE(recorder.thread(), std::this_thread::get_id());
}

TEST_F(ClientTest, IntroducesItselfByName) {
  const RawPeer peer = connect();
  EXPECT_EQ(readHeader(service.request.data()).type, IPC_MSG_CONNECT_REQUEST);
  EXPECT_EQ(textOf(payloadOf(service.request)), "vm-7");
}

TEST_F(ClientTest, ANameWithoutTerminatorIsCutAt32Bytes) {
  Recorder unterminated(std::string(40, 'n'));
  IpcClient own(unterminated.params());
  const RawPeer peer = connect(own);
  EXPECT_EQ(textOf(payloadOf(service.request)), std::string(32, 'n'));
}

TEST_F(ClientTest, AWelcomeWithACodeIsThatError) {
  auto accepted =
      std::async(std::launch::async, [this] { return service.welcome(IPC_ERROR_OTHER_USER); });
  EXPECT_EQ(client.connect(path.c_str()), IPC_ERROR_OTHER_USER);
  EXPECT_FALSE(client.connected());
}

TEST_F(ClientTest, ConnectErrors) {
  IpcClient own(recorder.params(), kShort);
  EXPECT_EQ(own.connect(nullptr), IPC_ERROR_PARAMETER);
  EXPECT_EQ(own.connect((dir / "nobody").c_str()), IPC_ERROR_NO_SERVICE);
  EXPECT_EQ(own.connect(("/" + std::string(200, 'x')).c_str()), IPC_ERROR_PATH_TOO_LONG);
  { const RawListener dead(dir / "dead"); }
  EXPECT_EQ(own.connect((dir / "dead").c_str()), IPC_ERROR_NO_SERVICE);
  EXPECT_EQ(own.connect(path.c_str()), IPC_ERROR_CONNECT_TIMEOUT) << "no welcome comes";
  EXPECT_EQ(recorder.connects(), 0);
  EXPECT_TRUE(recorder.closes().empty());
}

TEST_F(ClientTest, WithoutDescriptorsThereIsNoConnection) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizer's own checks need descriptors";
#endif
  rlimit before = {};
  ::getrlimit(RLIMIT_NOFILE, &before);
  const rlimit none = {0, before.rlim_max};
  ::setrlimit(RLIMIT_NOFILE, &none);
  EXPECT_EQ(client.connect(path.c_str()), IPC_ERROR_SYSTEM);
  ::setrlimit(RLIMIT_NOFILE, &before);
  const RawPeer peer = connect();
  EXPECT_TRUE(client.connected());
}

TEST_F(ClientTest, AServiceThatHangsUpBeforeTheWelcomeRefuses) {
  auto accepted = std::async(std::launch::async, [this] { service.accept().receive(); });
  EXPECT_EQ(client.connect(path.c_str()), IPC_ERROR_REFUSED);
}

TEST_F(ClientTest, AWelcomeThatIsNoneEndsTheAttempt) {
  auto garbage = std::async(std::launch::async, [this] {
    const RawPeer peer = service.accept();
    peer.send(Bytes(64, 'g'));
    return peer.ended();
  });
  EXPECT_EQ(client.connect(path.c_str()), IPC_ERROR_BAD_MAGIC);
  EXPECT_TRUE(garbage.get());
  auto other = std::async(std::launch::async, [this] {
    const RawPeer peer = service.accept();
    peer.send(message(IPC_MSG_DATA));
    return peer.ended();
  });
  EXPECT_EQ(client.connect(path.c_str()), IPC_ERROR_REFUSED);
  EXPECT_TRUE(other.get());
}

TEST_F(ClientTest, AFullQueueOfNewcomersIsWaitedForOnlySoLong) {
  IpcClient own(recorder.params(), kShort);
  std::vector<UniqueFd> sockets;  // which nobody accepts
  for (int i = 0; i < 64; ++i) {
    base::UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const base::SocketAddress address = base::toSockaddr({path, {}, 0});
    ::connect(socket.get(), address.get(), address.size);
    sockets.push_back(std::move(socket));
  }
  EXPECT_EQ(own.connect(path.c_str()), IPC_ERROR_CONNECT_TIMEOUT);
}

TEST_F(ClientTest, InTheBackgroundSuccessIsOnConnect) {
  auto accepted = std::async(std::launch::async, [this] { return service.welcome(); });
  EXPECT_EQ(client.connectInBackground(path.c_str()), 0);
  EXPECT_TRUE(recorder.awaitConnect());
  EXPECT_TRUE(client.connected());
}

TEST_F(ClientTest, InTheBackgroundFailureIsOnClose) {
  EXPECT_EQ(client.connectInBackground((dir / "nobody").c_str()), 0);
  ASSERT_TRUE(recorder.awaitClose());
  EXPECT_EQ(recorder.closes(), std::vector<int>{IPC_ERROR_NO_SERVICE});
  EXPECT_EQ(recorder.connects(), 0);
}

TEST_F(ClientTest, DisconnectCancelsAnAttempt) {
  auto attempt = std::async(std::launch::async, [&] { return client.connect(path.c_str()); });
  const RawPeer peer = service.accept();
  EXPECT_EQ(client.disconnect(), 0);
  EXPECT_EQ(attempt.get(), IPC_ERROR_DISCONNECTED);
  EXPECT_EQ(client.connectInBackground(path.c_str()), 0);
  const RawPeer second = service.accept();
  EXPECT_EQ(client.disconnect(), 0);
  EXPECT_TRUE(second.ended());
  EXPECT_TRUE(recorder.closes().empty());
}

TEST_F(ClientTest, OneConnectionAtATime) {
  const RawPeer peer = connect();
  EXPECT_EQ(client.connect(path.c_str()), IPC_ERROR_ALREADY_CONNECTED);
  EXPECT_EQ(client.connectInBackground(path.c_str()), IPC_ERROR_ALREADY_CONNECTED);
}

}  // namespace
}  // namespace lumsar::test
