// The whole program in this process, with a host at its socket.
#include "base/errors.h"
#include "unit/agent/program_fixture.h"
#include "unit/agent/small_files.h"

namespace lumsar::test {
namespace {

using namespace agent;

class ProgramTest : public ProgramFixture {
 protected:
  std::string finalStatus() {
    program.reset();
    return readFile(options.statusFile);
  }
  void startForRdp(milliseconds helloTimeout = milliseconds(300)) {
    options.endpoint.protocol = Protocol::Rdp;
    options.endpoint.helloTimeout = helloTimeout;
    start();
  }
  bool appears(const std::string& file) const {
    return eventually([&] { return std::filesystem::exists(folder / file); });
  }
};

TEST_F(ProgramTest, SavesWhatTheHostSendsAndLetsGoAtTheEnd) {
  options.save = folder / "saved";
  start();
  const RawPeer host(options.listen);
  ASSERT_TRUE(host.handshake(4711));
  host.send(join({announce(1, "Front"), announce(2, "Back")}));
  ASSERT_TRUE(host.receiveRecord(CameraDataKind::Start, 1));
  ASSERT_TRUE(host.receiveRecord(CameraDataKind::Start, 2));
  for (std::uint32_t i = 0; i < 10; ++i) {
    host.send(join({frame(1, i, blankJpeg(20000)), frame(2, i, blankJpeg(300))}));
    EXPECT_TRUE(appears("saved/Back-2-0000" + std::string(i < 9 ? "0" : "") +
                        std::to_string(i + 1) + ".jpg"));
  }
  host.send(frame(2, 11, blankJpeg(300)));
  ASSERT_TRUE(appears("saved/Back-2-000011.jpg"));
  const std::string status = finalStatus();
  EXPECT_TRUE(has(status, R"("token":4711)")) << status;
  EXPECT_TRUE(has(status, R"("frames":10,"bytes":200000,"lost":0,"dropped":0)")) << status;
  EXPECT_TRUE(has(status, R"("frames":11,"bytes":3300,"lost":1,"dropped":0)")) << status;
  EXPECT_TRUE(has(status, R"("savedFiles":10)")) << status;
  EXPECT_TRUE(host.receiveRecord(CameraDataKind::Stop, 1));
  EXPECT_TRUE(host.receiveRecord(CameraDataKind::Stop, 2));
  EXPECT_EQ(readFile(folder / "saved/Front-1-000010.jpg").size(), 20000U);
  EXPECT_FALSE(std::filesystem::exists(folder / "vm.sock"));
}

TEST_F(ProgramTest, TheRdpHostIsToldThatTheChannelIsOpen) {
  options.endpoint.shareAll = true;
  startForRdp(kTimeout);
  const RawPeer host(options.listen);
  EXPECT_EQ(host.receive(), message(MSG_CHANNEL_OPENED));
  host.send(hello(7, 0x13));
  EXPECT_EQ(headerOf(host.receive()).capabilities, 0x13U);
}

TEST_F(ProgramTest, ANewHelloAndUnredirectAllDropAllCameras) {
  start();
  const RawPeer host = newHostWithCameras();
  ASSERT_TRUE(host.handshake(2));
  expectStart(host, 1);
  host.send(message(MSG_UNREDIRECT_ALL));
  expectStart(host, 2);
  const std::string status = finalStatus();
  EXPECT_TRUE(host.receiveRecord(CameraDataKind::Stop, 2));
  EXPECT_TRUE(has(status, R"("handle":3)")) << status;
  EXPECT_FALSE(has(status, R"("present":true)")) << status;
}

TEST_F(ProgramTest, OneHostAfterTheOther) {
  start();
  RawPeer first = newHostWithCameras();
  const RawPeer second(options.listen);
  ASSERT_TRUE(second.connected());
  first.close();
  EXPECT_TRUE(second.handshake(2));
  expectStart(second, 1);
}

TEST_F(ProgramTest, GarbageHurtsOnlyItsOwnSession) {
  start();
  const RawPeer host(options.listen);
  host.send(join({bytesOf("leftovers of an old session"), hello(3)}));
  EXPECT_EQ(host.receive().size(), 36U);
  EXPECT_TRUE(host.receiveRecord(CameraDataKind::Encodings, 0));
  host.send(join({Bytes(100000, 0x07), hello(4), announce(5, "Front")}));
  EXPECT_EQ(host.receive().size(), 36U);
  EXPECT_TRUE(host.receiveRecord(CameraDataKind::Start, 5));
  EXPECT_TRUE(has(finalStatus(), R"("faults":1,"droppedBytes":100027)"));
}

TEST_F(ProgramTest, AMessageCutInHalfDoesNotSwallowTheNextHello) {
  start();
  const RawPeer host = newHost();
  Bytes half = message(MSG_DATA, Bytes(100000, 0x33));
  half.resize(40000);
  EXPECT_TRUE(host.receiveRecord(CameraDataKind::Encodings, 0));
  host.send(join({half, hello(2)}));
  EXPECT_EQ(host.receive().size(), 36U);
}

TEST_F(ProgramTest, ASpiceHostWithABrokenSessionIsDisconnectedToBeginAgain) {
  options.endpoint.helloTimeout = milliseconds(300);
  start();
  const RawPeer host = newHost();
  host.send(bytesOf("these bytes are no message"));
  EXPECT_TRUE(host.ended());
  newHost();
}

TEST_F(ProgramTest, AnRdpHostThatDoesNotGreetIsAskedAgain) {
  startForRdp();
  const RawPeer host(options.listen);
  EXPECT_EQ(host.receive(), message(MSG_CHANNEL_OPENED));
  EXPECT_EQ(host.receive(), message(MSG_CHANNEL_OPENED));
  host.send(hello(7, 0x13));
  EXPECT_EQ(host.receive().size(), 36U);
}

TEST_F(ProgramTest, APeerWithoutAHelloMakesRoomForTheHost) {
  options.endpoint.helloTimeout = milliseconds(300);
  start();
  const RawPeer peer(options.listen);
  peer.send(View(hello(1)).first(20));
  const RawPeer host = newHost();
  EXPECT_TRUE(peer.ended());
}

TEST_F(ProgramTest, AnRdpPeerIsAskedOnceMoreAndThenMakesRoom) {
  startForRdp();
  const RawPeer peer(options.listen);
  const RawPeer host(options.listen);
  EXPECT_EQ(host.receive(), message(MSG_CHANNEL_OPENED));
  EXPECT_TRUE(peer.ended());
}

TEST_F(ProgramTest, AFullDiskStopsTheSavingOfOneCameraOnly) {
  options.save = folder / "saved";
  const SmallFiles limit(10000);
  start();
  const RawPeer host = newHostWithCameras(2);
  host.send(join({frame(1, 0, blankJpeg(20000)), frame(2, 0, blankJpeg())}));
  EXPECT_TRUE(host.receiveRecord(CameraDataKind::Stop, 1));  // it has no consumer any more
  host.send(frame(2, 1, blankJpeg()));
  EXPECT_TRUE(appears("saved/Camera-2-000002.jpg"));
  EXPECT_TRUE(has(finalStatus(), "File too large"));
}

TEST_F(ProgramTest, SendsStatisticsToTheService) {
  start();
  const RawPeer host = newHostWithCameras();
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

TEST_F(ProgramTest, EndsByItselfInTime) {
  options.runFor = milliseconds(100);
  const auto begin = Clock::now();
  Program timed(options);
  timed.run();
  EXPECT_GE(Clock::now() - begin, milliseconds(100));
}

TEST_F(ProgramTest, ASocketThatIsServedOrIsNoSocketIsRefused) {
  start();
  EXPECT_THROW(Program{options}, base::Failure);
  writeFile(folder / "file", "precious");
  options.listen = "unix:" + (folder / "file");
  EXPECT_THROW(Program{options}, base::Failure);
  EXPECT_EQ(readFile(folder / "file"), "precious");
}

TEST_F(ProgramTest, AStaleSocketIsReplaced) {
  { const RawListener stale(folder / "vm.sock"); }
  EXPECT_TRUE(std::filesystem::exists(folder / "vm.sock"));
  start();
  newHost();
}

}  // namespace
}  // namespace lumsar::test
