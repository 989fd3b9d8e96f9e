// The whole program in this process, with a host and camera services at its sockets.
#include "app/program.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>

#include "base/files.h"
#include "support/raw_peer.h"
#include "support/temporary_directory.h"

namespace lumsar::test {
namespace {

using namespace agent;

class ProgramTest : public testing::Test {
 protected:
  ProgramTest() {
    options.listen = "unix:" + (folder / "vm.sock");
    options.statusFile = folder / "status.json";
  }
  ~ProgramTest() override { end(); }
  void start() {
    program.emplace(options);
    thread = std::thread([this] { program->run(); });
  }
  void end() {
    if (!thread.joinable()) return;
    program->stop();
    thread.join();
  }
  std::string finalStatus() {
    end();
    return readFile(options.statusFile);
  }
  static bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
  }

  TemporaryDirectory folder;
  Options options;
  std::optional<Program> program;
  std::thread thread;
};

TEST_F(ProgramTest, SavesWhatTheHostSendsAndLetsGoAtTheEnd) {
  options.save = folder / "saved";
  start();
  RawPeer host(options.listen);
  ASSERT_TRUE(host.handshake(4711));
  host.send(join({announce(1, "Front"), announce(2, "Back")}));
  ASSERT_TRUE(host.receiveRecord(CameraDataKind::Start, 1));
  ASSERT_TRUE(host.receiveRecord(CameraDataKind::Start, 2));
  for (std::uint32_t i = 0; i < 10; ++i) {
    host.send(join({frame(1, i, blankJpeg(20000)), frame(2, i, blankJpeg(300))}));
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  host.send(frame(2, 11, blankJpeg(300)));
  ASSERT_TRUE(
      eventually([&] { return std::filesystem::exists(folder / "saved/Back-2-000011.jpg"); }));
  const std::string status = finalStatus();
  EXPECT_TRUE(has(status, R"("token":4711)")) << status;
  EXPECT_TRUE(has(status, R"("frames":10,"bytes":200000,"lost":0,"dropped":0)")) << status;
  EXPECT_TRUE(has(status, R"("frames":11,"bytes":3300,"lost":1,"dropped":0)")) << status;
  EXPECT_TRUE(has(status, R"("savedFiles":10)")) << status;
  EXPECT_TRUE(host.receiveRecord(CameraDataKind::Stop, 1));
  EXPECT_TRUE(host.receiveRecord(CameraDataKind::Stop, 2));
  EXPECT_EQ(readFile(folder / "saved/Front-1-000010.jpg").size(), 20000U);
  program.reset();
  EXPECT_FALSE(std::filesystem::exists(folder / "vm.sock"));
}

TEST_F(ProgramTest, TheRdpHostIsToldThatTheChannelIsOpen) {
  options.endpoint.protocol = Protocol::Rdp;
  options.endpoint.shareAll = true;
  options.discard = true;
  start();
  RawPeer host(options.listen);
  EXPECT_EQ(host.receive(), message(MSG_CHANNEL_OPENED));
  host.send(hello(7, 0x13));
  EXPECT_EQ(readHeader(host.receive().data()).capabilities, 0x13U);
}

TEST_F(ProgramTest, ANewHelloAndUnredirectAllDropAllCameras) {
  options.discard = true;
  start();
  RawPeer host(options.listen);
  ASSERT_TRUE(host.handshake(1));
  host.send(announce(1, "Front"));
  ASSERT_TRUE(host.receiveRecord(CameraDataKind::Start, 1));
  ASSERT_TRUE(host.handshake(2));
  host.send(announce(1, "Front again"));
  ASSERT_TRUE(host.receiveRecord(CameraDataKind::Start, 1));
  host.send(join({message(MSG_UNREDIRECT_ALL), announce(2, "Back")}));
  ASSERT_TRUE(host.receiveRecord(CameraDataKind::Start, 2));
  const std::string status = finalStatus();
  EXPECT_TRUE(host.receiveRecord(CameraDataKind::Stop, 2));
  EXPECT_TRUE(has(status, R"("handle":3)")) << status;
  EXPECT_FALSE(has(status, R"("present":true)")) << status;
}

TEST_F(ProgramTest, OneHostAfterTheOther) {
  options.discard = true;
  start();
  RawPeer first(options.listen);
  ASSERT_TRUE(first.handshake(1));
  first.send(announce(1, "Front"));
  ASSERT_TRUE(first.receiveRecord(CameraDataKind::Start, 1));
  RawPeer second(options.listen);
  ASSERT_TRUE(second.connected());
  first.close();
  EXPECT_TRUE(second.handshake(2));
  second.send(announce(1, "Front"));
  EXPECT_TRUE(second.receiveRecord(CameraDataKind::Start, 1));
}

TEST_F(ProgramTest, GarbageHurtsOnlyItsOwnSession) {
  options.discard = true;
  start();
  RawPeer host(options.listen);
  host.send(join({bytesOf("leftovers of an old session"), hello(3)}));
  EXPECT_EQ(host.receive().size(), 36U);
  host.send(join({Bytes(100000, 0x07), hello(4), announce(5, "Front")}));
  EXPECT_EQ(host.receive().size(), 36U);
  EXPECT_TRUE(host.receiveRecord(CameraDataKind::Start, 5));
  EXPECT_TRUE(has(finalStatus(), R"("faults":1,"droppedBytes":100027)"));
}

TEST_F(ProgramTest, AMessageCutInHalfDoesNotSwallowTheNextHello) {
  options.discard = true;
  start();
  RawPeer host(options.listen);
  ASSERT_TRUE(host.handshake(1));
  Bytes half = message(MSG_DATA, Bytes(100000, 0x33));
  half.resize(40000);
  host.send(join({half, hello(2)}));
  EXPECT_EQ(host.receive().size(), 36U);
}

TEST_F(ProgramTest, ASpiceHostWithABrokenSessionIsSentAwayToBeginAnew) {
  options.discard = true;
  options.endpoint.helloTimeout = std::chrono::milliseconds(300);
  start();
  RawPeer host(options.listen);
  ASSERT_TRUE(host.handshake());
  host.send(bytesOf("these bytes are no message"));
  EXPECT_TRUE(host.ended());
  RawPeer again(options.listen);
  EXPECT_TRUE(again.handshake());
}

TEST_F(ProgramTest, AnRdpHostThatDoesNotGreetIsAskedAgain) {
  options.discard = true;
  options.endpoint.protocol = Protocol::Rdp;
  options.endpoint.helloTimeout = std::chrono::milliseconds(300);
  start();
  RawPeer host(options.listen);
  EXPECT_EQ(host.receive(), message(MSG_CHANNEL_OPENED));
  EXPECT_EQ(host.receive(), message(MSG_CHANNEL_OPENED));
  host.send(hello(7, 0x13));
  EXPECT_EQ(host.receive().size(), 36U);
}

TEST_F(ProgramTest, AStrangerWithoutAHelloMakesRoomForTheHost) {
  options.discard = true;
  options.endpoint.helloTimeout = std::chrono::milliseconds(300);
  start();
  RawPeer stranger(options.listen);
  const Bytes whole = hello(1);
  stranger.send(Bytes(whole.begin(), whole.begin() + 20));
  RawPeer host(options.listen);
  EXPECT_TRUE(host.handshake());
  EXPECT_TRUE(stranger.ended());
}

TEST_F(ProgramTest, AnRdpStrangerIsAskedOnceMoreAndThenMakesRoom) {
  options.discard = true;
  options.endpoint.protocol = Protocol::Rdp;
  options.endpoint.helloTimeout = std::chrono::milliseconds(300);
  start();
  RawPeer stranger(options.listen);
  RawPeer host(options.listen);
  EXPECT_EQ(host.receive(), message(MSG_CHANNEL_OPENED));
  EXPECT_TRUE(stranger.ended());
}

TEST_F(ProgramTest, AFullDiskStopsTheSavingOfOneCameraOnly) {
  options.save = folder / "saved";
  std::filesystem::create_directory(folder / "saved");
  std::filesystem::create_symlink("/dev/full", folder / "saved/Front-1-000001.jpg.part");
  start();
  RawPeer host(options.listen);
  ASSERT_TRUE(host.handshake());
  host.send(join({announce(1, "Front"), announce(2, "Back")}));
  ASSERT_TRUE(host.receiveRecord(CameraDataKind::Start, 2));
  host.send(join({frame(1, 0, blankJpeg()), frame(2, 0, blankJpeg())}));
  EXPECT_TRUE(host.receiveRecord(CameraDataKind::Stop, 1));  // it no longer has a consumer
  host.send(frame(2, 1, blankJpeg()));
  EXPECT_TRUE(
      eventually([&] { return std::filesystem::exists(folder / "saved/Back-2-000002.jpg"); }));
  EXPECT_TRUE(has(finalStatus(), "No space left on device"));
}

TEST_F(ProgramTest, SendsStatisticsToTheService) {
  options.discard = true;
  start();
  RawPeer host(options.listen);
  ASSERT_TRUE(host.handshake());
  host.send(announce(1, "Front"));
  ASSERT_TRUE(host.receiveRecord(CameraDataKind::Start, 1));
  host.send(join(
      {frame(1, 0, blankJpeg(500)), frame(1, 3, blankJpeg(500)), frame(1, 4, bytesOf("bad"))}));
  const auto body = host.receiveRecord(CameraDataKind::Statistics, 1);
  ASSERT_TRUE(body);
  View rest(*body);
  const auto statistics = take<CameraStatistics>(rest);
  EXPECT_EQ(statistics->frames, 3U);
  EXPECT_EQ(statistics->bytes, 1003U);
  EXPECT_EQ(statistics->lost, 2U);
  EXPECT_EQ(statistics->dropped, 1U);
}

class DirectTest : public ProgramTest {
 protected:
  std::string startDirect() {
    options.listen.clear();
    options.discard = true;
    options.listenDirect = "tcp:0";
    start();
    return program->directAddress();
  }
};

TEST_F(DirectTest, SeveralServicesComeByThemselves) {
  const std::string address = startDirect();
  RawPeer one(address);
  RawPeer two(address);
  ASSERT_TRUE(one.handshake(11));
  ASSERT_TRUE(two.handshake(12));
  one.send(announce(1, "Front"));
  two.send(announce(1, "Back"));
  EXPECT_TRUE(one.receiveRecord(CameraDataKind::Start, 1));
  EXPECT_TRUE(two.receiveRecord(CameraDataKind::Start, 1));
  one.close();
  two.send(frame(1, 0, blankJpeg()));
  const std::string file = options.statusFile;
  EXPECT_TRUE(eventually([&] {
    return has(readFile(file), R"("name":"Front","vendorId":0,"productId":0,"present":false)");
  }));
  EXPECT_TRUE(has(readFile(file), R"("name":"service 2")"));
}

TEST_F(DirectTest, StrangersMakeRoomForServices) {
  options.endpoint.helloTimeout = std::chrono::milliseconds(300);
  const std::string address = startDirect();
  std::vector<std::unique_ptr<RawPeer>> strangers(16);
  for (auto& stranger : strangers) stranger = std::make_unique<RawPeer>(address);
  RawPeer service(address);
  EXPECT_TRUE(service.handshake());
}

TEST_F(DirectTest, TheDirectWayNeverAsksForAllCameras) {
  options.endpoint.shareAll = true;
  RawPeer service(startDirect());
  service.send(hello(1));
  EXPECT_EQ(readHeader(service.receive().data()).capabilities, 3U);
}

TEST_F(ProgramTest, EndsByItselfInTime) {
  options.runFor = std::chrono::milliseconds(100);
  Program timed(options);
  const auto begin = Clock::now();
  timed.run();
  EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(100));
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(2));
}

TEST_F(ProgramTest, ASocketThatIsServedOrIsNoSocketIsRefused) {
  start();
  EXPECT_THROW(Program{options}, base::Failure);
  writeFile(folder / "file", "precious");
  options.listen = "unix:" + (folder / "file");
  EXPECT_THROW(Program{options}, base::Failure);
  EXPECT_EQ(readFile(folder / "file"), "precious");
}

TEST(ReplaceFile, AFileThatIsCutShortIsAnErrorWithAReason) {
  const TemporaryDirectory folder;
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit small{10, before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &small);
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  const bool good = base::replaceFile(folder / "file", bytesOf("longer than ten bytes"));
  const int error = errno;
  setrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, handler);
  EXPECT_FALSE(good);
  EXPECT_EQ(error, EFBIG);
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST_F(ProgramTest, AStaleSocketIsReplaced) {
  const auto address = base::toSockaddr(base::parseAddress(options.listen));
  const base::UniqueFd stale(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  ASSERT_EQ(bind(stale.get(), address.get(), address.size), 0);
  EXPECT_TRUE(std::filesystem::exists(folder / "vm.sock"));
  start();
  RawPeer host(options.listen);
  EXPECT_TRUE(host.handshake());
}

}  // namespace
}  // namespace lumsar::test
