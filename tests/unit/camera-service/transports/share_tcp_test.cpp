// The whole service: sharing straight with a VM over TCP. The VM is a socket in the test.
#include <thread>

#include "support/raw_peer.h"
#include "support/temporary_directory.h"
#include "unit/camera-service/test_host.h"

namespace lumsar::test {
namespace {

// A VM that listens on the loopback interface and speaks as the test tells it.
class TcpVm {
 public:
  // Accepts, reads the HELLO and answers it, with its token changed by `wrong`.
  RawPeer handshake(int wrong = 0) {
    RawPeer peer = listener.accept();
    EXPECT_TRUE(peer.connected()) << "nobody connects";
    hello = peer.receive();
    Bytes answer = hello;
    answer[18] = 1;
    answer[kHeaderSize] = static_cast<unsigned char>(answer[kHeaderSize] + wrong);
    peer.send(answer);
    return peer;
  }
  RawListener listener{"tcp:0"};
  int port = listener.port();
  Bytes hello;
};

// Up to a record of this kind.
Record await(const RawPeer& peer, CameraDataKind kind) {
  for (;;) {
    const Bytes bytes = peer.receive();
    if (bytes.empty()) return {};
    EXPECT_EQ(headerOf(bytes).type, MSG_DATA);
    Record record = parseRecord(payloadOf(bytes));
    if (record.kind == kind) return record;
  }
}

class ShareTcpTest : public ServiceTest {
 protected:
  // With camera "test:A" of this format.
  void startCamera(const std::string& format = "320x240@30") {
    start({"--camera", "test:A," + format});
    ASSERT_TRUE(host().awaitCamera("test:A"));
  }
  // Shares it with the VM, which has answered the HELLO.
  RawPeer share() {
    host().command(IPC_MSG_SHARE, document());
    return vm.handshake();
  }
  // The VM waits for its announcement, starts it and gets a frame.
  static void startStreaming(const RawPeer& peer) {
    const std::uint32_t camera = await(peer, CameraDataKind::Announced).camera;
    peer.send(message(MSG_DATA, record(CameraDataKind::Start, camera)));
    await(peer, CameraDataKind::Frame);
  }
  QJsonObject document(const char* device = "test:A") const { return document(vm.port, device); }
  static QJsonObject document(int port, const char* device) {
    return {{"command", "sharetcp"},
            {"deviceId", device},
            {"remoteIp", "127.0.0.1"},
            {"remotePort", port}};
  }
  // As the plug-in does it: first the connection, a little later the share.
  static void shareTcp(TestHost& host, const QJsonObject& document) {
    host.command(IPC_MSG_CONNECT_VM, document);
    std::this_thread::sleep_for(milliseconds(200));
    host.command(IPC_MSG_SHARE, document);
  }

  TcpVm vm;
};

TEST_F(ShareTcpTest, TheWholeRound) {
  startCamera();
  std::thread sharing([&] { shareTcp(host(), document()); });
  const RawPeer peer = vm.handshake();
  const RedirMsgHeader hello = readHeader(vm.hello.data());
  EXPECT_EQ(hello.type, MSG_HELLO);
  EXPECT_EQ(hello.length, sizeof(HelloPayload));
  EXPECT_EQ(hello.clientMajor, 1);
  EXPECT_EQ(hello.clientMinor, 1);
  EXPECT_EQ(hello.capabilities, 0x03U);
  const Record announced = await(peer, CameraDataKind::Announced);
  EXPECT_EQ(announced.id, "test:A");
  peer.send(message(MSG_DATA, record(CameraDataKind::Start, announced.camera)));
  for (std::uint32_t sequence = 1; sequence <= 5; ++sequence) {
    const Record frame = await(peer, CameraDataKind::Frame);
    EXPECT_EQ(jpegSize(frame.picture), (PictureSize{320, 240}));
    EXPECT_EQ(frame.frame.sequence, sequence);
  }
  sharing.join();
  EXPECT_EQ(host().records.count(CameraDataKind::Frame), 0U) << "nothing through the host";
  host().unshare("test:A");
  EXPECT_EQ(await(peer, CameraDataKind::Removed).camera, announced.camera);
  EXPECT_TRUE(peer.ended()) << "an idle connection is closed";
}

TEST_F(ShareTcpTest, TheVmMayHaveAName) {
  startCamera();
  QJsonObject named = document();
  named["remoteIp"] = "localhost";
  std::thread sharing([&] { shareTcp(host(), named); });
  const RawPeer peer = vm.handshake();
  startStreaming(peer);
  sharing.join();
  EXPECT_TRUE(host().changes().empty());
  EXPECT_TRUE(m_service->says("localhost"));
}

TEST_F(ShareTcpTest, TwoCamerasUseOneConnection) {
  start({"--camera", "test:A,320x240", "--camera", "test:B,320x240"});
  ASSERT_TRUE(host().awaitCamera("test:B"));
  std::thread sharing([&] {
    shareTcp(host(), document("test:A"));
    shareTcp(host(), document("test:B"));
  });
  const RawPeer peer = vm.handshake();
  EXPECT_EQ(await(peer, CameraDataKind::Announced).id, "test:A");
  EXPECT_EQ(await(peer, CameraDataKind::Announced).id, "test:B");
  sharing.join();
}

TEST_F(ShareTcpTest, AVmThatIsNotThereIsReported) {
  startCamera();
  vm.listener.close();
  shareTcp(host(), document());
  const QJsonObject failed = host().awaitChange("failed");
  EXPECT_EQ(failed.value("camera").toString(), "test:A");
  EXPECT_TRUE(failed.value("reason").toString().contains("no guest agent answers there"));
  EXPECT_EQ(host().changes().size(), 1U) << "told once for both halves of the command";
  EXPECT_TRUE(eventually([&] {
    return TestHost::camera(host().list(), "test:A").value("sharedWith").toArray().isEmpty();
  }));
}

TEST_F(ShareTcpTest, AWrongCommandIsToldOnce) {
  startCamera();
  shareTcp(host(), document(1, "99"));
  shareTcp(host(), document(0, "test:A"));
  host().awaitChange("refused", 2);
  host().list();
  EXPECT_EQ(host().changes().size(), 2U);
}

TEST_F(ShareTcpTest, TheAccessTokenComesFirst) {
  const TemporaryDirectory folder;
  const std::string file = folder / "token";
  writeFile(file, "0123456789abcdef\n");
  std::filesystem::permissions(file, std::filesystem::perms(0600));
  start({"--camera", "test:A,320x240@30", "--token-file", file});
  ASSERT_TRUE(host().awaitCamera("test:A"));
  host().command(IPC_MSG_SHARE, document());
  const RawPeer peer = vm.listener.accept();
  EXPECT_EQ(textOf(peer.read(31)), "LUMSAR-ACCESS 0123456789abcdef\n");
  EXPECT_EQ(headerOf(peer.receive()).type, MSG_HELLO);
}

TEST_F(ShareTcpTest, AWrongTokenIsReported) {
  startCamera();
  host().command(IPC_MSG_CONNECT_VM, document());
  const RawPeer peer = vm.handshake(1);
  host().awaitChange("failed");
  EXPECT_TRUE(m_service->says("another token"));
  EXPECT_TRUE(peer.ended());
}

TEST_F(ShareTcpTest, AVmThatGoesIsReported) {
  startCamera();
  startStreaming(share());
  EXPECT_EQ(host().awaitChange("failed").value("camera").toString(), "test:A");
  EXPECT_FALSE(host().isRunning("test:A"));
  EXPECT_EQ(host().list().value("refusals").toArray().size(), 1);
}

TEST_F(ShareTcpTest, AVmThatSendsGarbageIsReported) {
  startCamera();
  const RawPeer peer = share();
  peer.send(Bytes(100, 'g'));
  EXPECT_TRUE(host().awaitChange("failed").value("reason").toString().contains("not a message"));
}

TEST_F(ShareTcpTest, AVmThatTakesNothingForLongIsGivenUp) {
  startCamera("1280x720@30");
  const RawPeer peer = share();
  startStreaming(peer);
  const auto running = [&] { return host().isRunning("test:A"); };
  EXPECT_TRUE(running());
  const milliseconds limit(25000);  // the socket's buffers fill, then ten seconds pass
  EXPECT_TRUE(eventually([&] { return !running(); }, limit));
  EXPECT_TRUE(eventually([&] { return !host().changes().empty(); }, limit)) << "failed";
}

TEST_F(ShareTcpTest, FromTheHostsWayToTcpAndBack) {
  start({"--camera", "test:A,320x240@30"});
  const std::uint32_t number = watch(host(), "test:A");
  const RawPeer peer = share();
  EXPECT_EQ(await(peer, CameraDataKind::Announced).camera, number);
  EXPECT_EQ(host().records.await(CameraDataKind::Removed).camera, number);
  host().fromVm(CameraDataKind::Start, number);
  EXPECT_FALSE(host().isRunning("test:A")) << "the camera is no longer shared this way";
  host().share("test:A");
  EXPECT_EQ(await(peer, CameraDataKind::Removed).camera, number);
  host().records.await(CameraDataKind::Announced, 2);
}

TEST_F(ShareTcpTest, TheConnectionEndsWithItsHost) {
  startCamera();
  const RawPeer peer = share();
  await(peer, CameraDataKind::Announced);
  m_host.reset();
  EXPECT_TRUE(peer.ended());
}

}  // namespace
}  // namespace lumsar::test
