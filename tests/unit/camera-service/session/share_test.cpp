// What a share sends of a camera that is off.
#include "session/share.h"

#include <gtest/gtest.h>

#include "unit/camera-service/test_host.h"

namespace lumsar::test {
namespace {

class RecordingTransport : public service::VmTransport {
 public:
  bool isReady = true;
  std::vector<protocol::Message> sent;

  bool ready() const override { return isReady; }
  std::uint32_t dataType() const override { return IPC_MSG_DATA; }
  void send(ipc::Outgoing outgoing) override { sent.push_back(std::move(outgoing.message)); }
  std::string name() const override { return "test"; }
};

class ShareTest : public ::testing::Test {
 protected:
  ShareTest() {
    camera.info.id = "test:Front";
    camera.info.name = "Front";
    camera.info.vendorId = 0x046d;
    camera.info.productId = 0x0825;
    camera.info.formats = {{"I420", 1280, 720, 30, 1}};
    camera.number = 5;
    rule.maxWidth = 640;
    share.setRule(rule);
  }
  Record lastRecord() {
    return transport->sent.empty() ? Record{} : parseRecord(transport->sent.back().payload());
  }

  asio::io_context io;
  asio::thread_pool threads{1};
  service::Camera camera;
  service::PolicyRule rule;
  service::CameraStream stream{io, threads, camera, {}};
  std::shared_ptr<RecordingTransport> transport = std::make_shared<RecordingTransport>();
  service::Share share{stream, transport, rule};
};

TEST_F(ShareTest, AnnouncesTheCameraAsItWillBeSent) {
  share.announce();
  ASSERT_EQ(transport->sent.size(), 1U);
  EXPECT_EQ(transport->sent.front().header().type, IPC_MSG_DATA);
  const Record record = lastRecord();
  EXPECT_EQ(record.kind, CameraDataKind::Announced);
  EXPECT_EQ(record.camera, 5U);
  EXPECT_EQ(record.announced.vendorId, 0x046d);
  EXPECT_EQ(record.announced.productId, 0x0825);
  EXPECT_EQ(record.announced.width, 640);
  EXPECT_EQ(record.announced.height, 360);
  EXPECT_EQ(record.announced.frameInterval, 33'333U);
  EXPECT_EQ(record.announced.encoding, kEncodingMjpg);
  EXPECT_EQ(record.id, "test:Front");
  EXPECT_EQ(record.name, "Front");
}

TEST_F(ShareTest, ChoosesTheEncodingByWhatTheVmShows) {
  rule.encoding = service::SentEncoding::Auto;
  share.setRule(rule);
  share.announce();
  EXPECT_EQ(lastRecord().announced.encoding, kEncodingMjpg);
  transport->setShowsH264(true);
  share.onEncodingsChanged();
  ASSERT_EQ(transport->sent.size(), 2U);
  EXPECT_EQ(lastRecord().announced.encoding, kEncodingH264);
  rule.encoding = service::SentEncoding::Mjpg;
  share.setRule(rule);
  share.onEncodingsChanged();
  EXPECT_EQ(transport->sent.size(), 2U) << "nothing to choose";
  share.announce();
  EXPECT_EQ(lastRecord().announced.encoding, kEncodingMjpg);
}

TEST_F(ShareTest, ALongNameIsCutBetweenCharacters) {
  camera.info.name = "x";
  for (int i = 0; i < 1000; ++i) camera.info.name += "ü";
  share.announce();
  const Record record = lastRecord();
  EXPECT_EQ(record.name.size(), 1023U);
  EXPECT_TRUE(record.name.ends_with("ü"));
}

TEST_F(ShareTest, SaysWhyItIsRemoved) {
  share.remove("unplugged");
  EXPECT_EQ(lastRecord().kind, CameraDataKind::Removed);
  EXPECT_EQ(lastRecord().camera, 5U);
  EXPECT_EQ(lastRecord().text, "unplugged");
}

TEST_F(ShareTest, SendsNothingUntilTheTransportIsReady) {
  transport->isReady = false;
  share.announce();
  share.remove("unplugged");
  EXPECT_TRUE(transport->sent.empty());
}

}  // namespace
}  // namespace lumsar::test
