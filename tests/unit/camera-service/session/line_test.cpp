// The whole service and VMs that tell which frames they have. The service is a process of its own.
#include "unit/camera-service/test_host.h"

namespace lumsar::test {
namespace {

class LineTest : public ServiceTest {
 protected:
  // The VM has this frame; 0: it is going to tell.
  void received(std::uint32_t sequence) {
    host().fromVm(CameraDataKind::Received, m_number, bytesOf(CameraReceived{sequence}));
  }
  void receivedAll() {
    const auto frames = host().records.of(CameraDataKind::Frame);
    received(frames.back().frame.sequence);
  }
  void begin(const std::string& camera = "test:A,320x240@30") {
    start({"--camera", camera});
    ASSERT_TRUE(host().awaitCamera("test:A"));
    host().share("test:A");
    m_number = host().records.await(CameraDataKind::Announced).camera;
    host().fromVm(CameraDataKind::Start, m_number);
  }
  std::string line() {
    const QJsonObject status = host().status().value("hosts").toArray().at(0).toObject();
    const QJsonObject share = status.value("shares").toArray().at(0).toObject();
    return share.value("line").toString().toStdString();
  }
  std::size_t frames() { return host().records.count(CameraDataKind::Frame); }

  std::uint32_t m_number = 0;
};

TEST_F(LineTest, AVmThatDoesNotTellGetsAll) {
  begin();
  host().records.await(CameraDataKind::Frame, 20);
  EXPECT_EQ(line(), "the VM does not tell what it receives");
}

TEST_F(LineTest, NoMoreIsSentThanTheVmHasTaken) {
  begin();
  received(0);
  host().records.await(CameraDataKind::Frame, 2);
  EXPECT_EQ(line(), "no limit");
  std::this_thread::sleep_for(milliseconds(1500));
  EXPECT_LT(frames(), 10U);
  ASSERT_TRUE(eventually([this] {
    receivedAll();
    return frames() > 40;
  }));
}

TEST_F(LineTest, TheStatusTellsWhatTheLineTakes) {
  begin();
  received(0);
  host().records.await(CameraDataKind::Frame);
  ASSERT_TRUE(eventually([this] {
    return line().find(" kbit/s, as frames waited ") != line().npos;
  })) << line();
  host().policy({{"cameraEnableFRC", "OFF"}});
  EXPECT_EQ(line(), "not followed, as the policy says");
  host().records.await(CameraDataKind::Frame, frames() + 20);
  host().fromVm(CameraDataKind::Stop, m_number);
  EXPECT_TRUE(eventually([this] { return line().empty(); }));
}

TEST_F(LineTest, WithoutAnySignOfTheVmTheCameraPauses) {
  begin();
  received(0);
  ASSERT_TRUE(m_service->says("' is paused for host, which is stalled"));
  ASSERT_TRUE(m_service->says("camera 'test:A' is off"));
  receivedAll();
  ASSERT_TRUE(eventually([this] {
    receivedAll();
    return host().isRunning("test:A");
  }));
  const std::size_t before = frames();
  EXPECT_TRUE(eventually([&] {
    receivedAll();
    return frames() > before + 10;
  }));
}

}  // namespace
}  // namespace lumsar::test
