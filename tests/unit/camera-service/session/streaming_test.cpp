// The whole service: sharing, starting, stopping, several cameras and hosts. The service is a
// process of its own.
#include <algorithm>

#include "unit/camera-service/test_host.h"

namespace lumsar::test {
namespace {

class StreamingTest : public ServiceTest {};

TEST_F(StreamingTest, WithoutAnyCameraASyntheticOneIsOffered) {
  start();
  const QJsonArray cameras = host().list().value("cameras").toArray();
  ASSERT_GE(cameras.size(), 1) << "a real camera, or the fallback";
  const QJsonObject camera = cameras.at(0).toObject();
  for (const char* key : {"id", "name", "number", "vendorId", "productId", "formats", "sharedWith",
                          "inUse", "present"}) {
    EXPECT_TRUE(camera.contains(key)) << key;
  }
  EXPECT_FALSE(camera.value("formats").toArray().isEmpty());
}

TEST_F(StreamingTest, ASharedCameraIsAnnouncedAndStreamsWhenStarted) {
  start({"--camera", "test:Front,640x480@30"});
  ASSERT_TRUE(host().awaitCamera("test:Front"));
  host().share("test:Front");
  const Record announced = host().records.await(CameraDataKind::Announced);
  EXPECT_EQ(announced.id, "test:Front");
  EXPECT_EQ(announced.name, "Front");
  EXPECT_EQ(announced.announced.width, 640);
  EXPECT_EQ(announced.announced.encoding, kEncodingMjpg);
  EXPECT_EQ(announced.announced.frameInterval, 33'333U);
  std::this_thread::sleep_for(milliseconds(200));
  EXPECT_EQ(host().records.count(CameraDataKind::Frame), 0U) << "not before the VM's start";
  EXPECT_FALSE(host().isRunning("test:Front"));

  host().fromVm(CameraDataKind::Start, announced.camera);
  host().records.await(CameraDataKind::Frame, 10);
  std::uint32_t sequence = 0;
  std::uint64_t time = 0;
  for (const Record& frame : host().records.of(CameraDataKind::Frame)) {
    EXPECT_EQ(frame.camera, announced.camera);
    EXPECT_EQ(jpegSize(frame.picture), (PictureSize{640, 480}));
    EXPECT_EQ(frame.frame.sequence, ++sequence);
    EXPECT_EQ(frame.frame.encoding, kEncodingMjpg);
    EXPECT_EQ(frame.frame.flags, kFrameIsKey);
    EXPECT_GT(frame.time, time);
    EXPECT_LE(frame.time, frame.arrival);
    EXPECT_LT(frame.arrival - frame.time, 2'000'000U);
    time = frame.time;
  }
  const QJsonObject status = TestHost::camera(host().status(), "test:Front");
  EXPECT_TRUE(status.value("running").toBool());
  EXPECT_TRUE(status.value("inUse").toBool());
}

TEST_F(StreamingTest, StopTurnsTheCameraOff) {
  start({"--camera", "test:Front,320x240@30"});
  const std::uint32_t number = watch(host(), "test:Front");
  host().fromVm(CameraDataKind::Stop, number);
  EXPECT_FALSE(host().isRunning("test:Front"));
  const std::size_t frames = host().records.count(CameraDataKind::Frame);
  std::this_thread::sleep_for(milliseconds(150));
  EXPECT_EQ(host().records.count(CameraDataKind::Frame), frames);
  EXPECT_EQ(host().records.count(CameraDataKind::Removed), 0U) << "it is still shared";
  host().fromVm(CameraDataKind::Start, number);
  host().records.await(CameraDataKind::Frame, frames + 3);
}

TEST_F(StreamingTest, UnshareSaysGone) {
  start({"--camera", "test:Front,320x240@30"});
  const std::uint32_t number = watch(host(), "test:Front");
  EXPECT_EQ(TestHost::camera(host().list(), "test:Front").value("sharedWith").toArray(),
            QJsonArray{"vm-7"});
  host().unshare("test:Front");
  const Record gone = host().records.await(CameraDataKind::Removed);
  EXPECT_EQ(gone.camera, number);
  EXPECT_FALSE(gone.text.empty());
  const QJsonObject camera = TestHost::camera(host().status(), "test:Front");
  EXPECT_FALSE(camera.value("running").toBool());
  EXPECT_TRUE(camera.value("sharedWith").toArray().isEmpty());
  host().fromVm(CameraDataKind::Start, number);
  EXPECT_FALSE(host().isRunning("test:Front"));
}

TEST_F(StreamingTest, ACameraMayBeNamedByNumberOrName) {
  start({"--camera", "test:Front,320x240", "--camera", "test:Desk,320x240"});
  ASSERT_TRUE(host().awaitCamera("test:Desk"));
  const int number = TestHost::camera(host().list(), "test:Desk").value("number").toInt();
  host().command(IPC_MSG_SHARE, {{"command", "share"}, {"deviceId", number}});
  EXPECT_EQ(host().records.await(CameraDataKind::Announced).id, "test:Desk");
  host().share("Front");
  EXPECT_EQ(host().records.await(CameraDataKind::Announced, 2).id, "test:Front");
}

TEST_F(StreamingTest, ACameraInUseIsNotAnnouncedAgain) {
  start({"--camera", "test:A,320x240@30"});
  watch(host(), "test:A");
  host().share("test:A");
  ASSERT_TRUE(m_service->says("already in use by VM 'vm-7'"));
  host().command(IPC_MSG_REDIRECT_ALL, {{"sessionId", 1}});
  const std::size_t frames = host().records.count(CameraDataKind::Frame);
  host().records.await(CameraDataKind::Frame, frames + 5);
  EXPECT_EQ(host().records.count(CameraDataKind::Announced), 1U);
  EXPECT_EQ(host().records.count(CameraDataKind::Removed), 0U);
}

TEST_F(StreamingTest, UnshareAllWithAndWithoutDocument) {
  start({"--camera", "test:A,320x240", "--camera", "test:B,320x240"});
  ASSERT_TRUE(host().awaitCamera("test:B"));
  for (const std::string document : {"", R"({"command":"unshareall"})"}) {
    host().records.clear();
    host().share("test:A");
    host().share("test:B");
    host().records.await(CameraDataKind::Announced, 2);
    host().send(IPC_MSG_UNSHARE_ALL, document);
    host().records.await(CameraDataKind::Removed, 2);
  }
}

TEST_F(StreamingTest, AllCamerasForASession) {
  start({"--camera", "test:A,320x240", "--camera", "test:B,320x240", "--deny", "test:B"});
  ASSERT_TRUE(host().awaitCamera("test:A"));
  host().command(IPC_MSG_REDIRECT_ALL, {{"sessionId", 3}});
  EXPECT_EQ(host().records.await(CameraDataKind::Announced).id, "test:A");
  EXPECT_TRUE(m_service->says("test:B' is left out"));
  EXPECT_EQ(host().records.count(CameraDataKind::Announced), 1U);
}

TEST_F(StreamingTest, TwoCamerasAtOnce) {
  start({"--camera", "test:A,320x240@30", "--camera", "test:B,160x120@30"});
  const std::uint32_t a = watch(host(), "test:A");
  const std::uint32_t b = watch(host(), "test:B");
  EXPECT_NE(a, b);
  EXPECT_TRUE(host().records.awaitFrameOf({320, 240}));
  EXPECT_TRUE(host().records.awaitFrameOf({160, 120}));
}

TEST_F(StreamingTest, TwoHostsShareOneCamera) {
  start({"--camera", "test:A,320x240@30"});
  const auto first = newHost("vm-1");
  auto second = newHost("vm-2");
  watch(*first, "test:A");
  watch(*second, "test:A");
  const QJsonObject camera = TestHost::camera(first->status(), "test:A");
  EXPECT_EQ(camera.value("sharedWith").toArray(), (QJsonArray{"vm-1", "vm-2"}));
  EXPECT_EQ(camera.value("readers").toInt(), 2);
  second.reset();
  EXPECT_TRUE(eventually([&] {
    return TestHost::camera(first->status(), "test:A").value("readers").toInt() == 1;
  })) << "its share ends with its host's connection";
  const std::size_t frames = first->records.count(CameraDataKind::Frame);
  first->records.await(CameraDataKind::Frame, frames + 5);
}

TEST_F(StreamingTest, AHostIsToldWhichCamerasAreItsOwn) {
  start({"--camera", "test:A,320x240@30"});
  const auto first = newHost("vm");
  const auto second = newHost("vm");
  const auto own = [](TestHost& host) {
    const QJsonObject camera = TestHost::camera(host.list(), "test:A");
    return std::pair(camera.value("sharedHere"), camera.value("inUseHere"));
  };
  const std::uint32_t number = watch(*first, "test:A");
  EXPECT_EQ(own(*first), std::pair(QJsonValue(true), QJsonValue(true)));
  EXPECT_EQ(own(*second), std::pair(QJsonValue(false), QJsonValue(false)));
  EXPECT_GT(TestHost::camera(first->list(), "test:A").value("framesHere").toInt(), 0);
  EXPECT_EQ(TestHost::camera(second->list(), "test:A").value("framesHere").toInt(), 0);
  second->share("test:A");
  EXPECT_EQ(own(*second), std::pair(QJsonValue(true), QJsonValue(false)));
  first->fromVm(CameraDataKind::Stop, number);
  EXPECT_EQ(own(*first), std::pair(QJsonValue(true), QJsonValue(false)));
}

TEST_F(StreamingTest, AHostThatIsGoneTurnsTheCameraOff) {
  start({"--camera", "test:A,320x240@30"});
  auto first = newHost("vm-1");
  watch(*first, "test:A");
  first.reset();
  const auto second = newHost("vm-2");
  EXPECT_TRUE(eventually([&] { return !second->isRunning("test:A"); }));
}

TEST_F(StreamingTest, WhatAVmSaysOfOtherCamerasIsNothing) {
  start({"--camera", "test:A,320x240@30"});
  ASSERT_TRUE(host().awaitCamera("test:A"));
  host().fromVm(CameraDataKind::Start, 0);
  host().fromVm(CameraDataKind::Start, 4711);
  host().fromVm(static_cast<CameraDataKind>(99), 0);
  host().send(IPC_MSG_DATA, "short");
  EXPECT_FALSE(host().isRunning("test:A"));
}

TEST_F(StreamingTest, RefusalsReachTheUserInThreeWays) {
  start({"--camera", "test:A,320x240"});
  host().share("7");
  const QJsonObject change = host().awaitChange("refused");
  EXPECT_EQ(change.value("camera").toString(), "7");
  EXPECT_EQ(change.value("vmId").toString(), "vm-7");
  EXPECT_TRUE(change.value("reason").toString().contains("no such camera"));
  const QJsonArray refusals = host().list().value("refusals").toArray();
  ASSERT_EQ(refusals.size(), 1);
  EXPECT_EQ(refusals.at(0).toObject().value("camera").toString(), "7");
  EXPECT_TRUE(m_service->says("refused 7"));
}

TEST_F(StreamingTest, EveryBadCommandHasAReason) {
  start({"--camera", "test:A,320x240"});
  std::size_t count = 0;
  const auto expectRefusal = [&](const char* part) {
    const QString reason = host().awaitChange("refused", ++count).value("reason").toString();
    EXPECT_TRUE(reason.contains(part)) << reason.toStdString();
  };
  host().send(IPC_MSG_SHARE, "no json");
  expectRefusal("not JSON");
  host().send(IPC_MSG_SHARE, "[1,2]");
  expectRefusal("not a JSON object");
  host().send(IPC_MSG_SHARE, "{}");
  expectRefusal("lacks a deviceId");
  host().send(IPC_MSG_SHARE, std::string(100'000, '['));
  expectRefusal("not JSON");
  host().unshare("test:A");
  expectRefusal("not shared");
  host().send(77, "{}");
  expectRefusal("type 77");
  host().send(IPC_MSG_CONNECT_VM, R"({"deviceId":"test:A","remoteIp":"no where","remotePort":1})");
  expectRefusal("not a valid address");
  host().send(IPC_MSG_CONNECT_VM, R"({"deviceId":"test:A","remoteIp":"127.0.0.1","remotePort":0})");
  expectRefusal("not a valid address");
  EXPECT_FALSE(host().list().isEmpty()) << "and the service goes on";
}

TEST_F(StreamingTest, DataThatAreTooShortAreSaidOnce) {
  start({"--camera", "test:A,320x240"});
  for (int i = 0; i < 100; ++i) host().send(IPC_MSG_DATA, "short");
  host().list();
  const std::string lines = log();
  const auto first = lines.find("too short");
  ASSERT_NE(first, std::string::npos);
  EXPECT_EQ(lines.find("too short", first + 1), std::string::npos);
}

TEST_F(StreamingTest, AStuckHostLosesFramesAndHarmsNobody) {
  start({"--camera", "test:A,1280x720@30"});
  TestHost stuck(channel, "stuck");
  std::atomic<bool> stop = false;
  watch(stuck, "test:A");
  stuck.recorder.duringReceive = [&](unsigned char*, int) {
    while (!stop) std::this_thread::sleep_for(milliseconds(1));
  };
  const auto good = newHost("good");
  watch(*good, "test:A");
  const bool dropped = eventually([&] {
    for (const QJsonValue& value : good->status().value("hosts").toArray()) {
      const QJsonObject host = value.toObject();
      if (host.value("name").toString() != "stuck") continue;
      EXPECT_LT(host.value("bytesQueued").toInt(), 20 << 20);
      return host.value("framesDropped").toInt() > 0;
    }
    return false;
  });
  EXPECT_TRUE(dropped);
  const std::size_t frames = good->records.count(CameraDataKind::Frame);
  good->records.await(CameraDataKind::Frame, frames + 10);
  stop = true;
}

std::size_t occurrences(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at) ++count;
  return count;
}

TEST_F(StreamingTest, AHostThatTakesNothingForLongHasNoCameraOn) {
  start({"--camera", "test:A,1280x720@30"});
  const auto good = newHost("good");
  TestHost stuck(channel, "stuck");
  std::atomic<bool> stop = false;
  const std::uint32_t number = watch(stuck, "test:A");
  stuck.recorder.duringReceive = [&](unsigned char* data, int length) {
    while (!stop) std::this_thread::sleep_for(milliseconds(1));
    const std::span message(data, static_cast<std::size_t>(length));
    if (readHeader(data).type == IPC_MSG_DATA) stuck.records.add(message.subspan(kHeaderSize));
  };
  const auto running = [&] { return good->isRunning("test:A"); };
  EXPECT_TRUE(eventually([&] { return !running(); })) << "ten seconds after its last frame";
  stop = true;
  EXPECT_TRUE(eventually(running));
  const std::size_t frames = stuck.records.count(CameraDataKind::Frame);
  stuck.records.await(CameraDataKind::Frame, frames + 10);
  stuck.fromVm(CameraDataKind::Stop, number);
  EXPECT_TRUE(eventually([&] { return !running(); }));
}

TEST_F(StreamingTest, AVmThatStartsAndStopsWithoutEndHoldsUpNobody) {
  makePicture(dir / "p.jpg", 640, 480);
  start({"--camera", "file:" + (dir / "p.jpg")});
  const auto good = newHost("good");
  const auto restless = newHost("restless");
  const std::uint32_t number = watch(*restless, "file:p.jpg");
  for (int i = 0; i < 1000; ++i) {
    restless->fromVm(CameraDataKind::Stop, number);
    restless->fromVm(CameraDataKind::Start, number);
  }
  const auto begin = std::chrono::steady_clock::now();
  good->list();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, kAtOnce);
  const std::size_t frames = restless->records.count(CameraDataKind::Frame);
  restless->records.await(CameraDataKind::Frame, frames + 3);
  EXPECT_LE(occurrences(log(), "' is on"), 5U);
}

// A VM that says that it takes three frames a second of a camera, and another that takes all of
// them: on a machine that stalls, both get fewer.
class RateTest : public StreamingTest {
 protected:
  void share() {
    number = watch(host(), "test:A");
    other = newHost("vm-8");
    watch(*other, "test:A");
  }
  // Several times, while the camera delivers.
  void sayThreeFrames() {
    CameraStatistics slow;
    slow.rate = 3000;
    for (int i = 0; i < 4; ++i) {
      other->records.await(CameraDataKind::Frame, other->records.count(CameraDataKind::Frame) + 9);
      host().fromVm(CameraDataKind::Statistics, number, bytesOf(slow));
    }
    host().list();  // answered once the reports have been read
  }
  // How many frames the other VM got of those captured during the next few of this one.
  std::ptrdiff_t othersFrames() {
    const std::size_t before = host().records.count(CameraDataKind::Frame);
    const std::uint64_t begin = host().records.await(CameraDataKind::Frame, before + 1).time;
    const std::uint64_t end =
        host().records.await(CameraDataKind::Frame, before + 1 + kFrames).time;
    EXPECT_TRUE(
        eventually([&] { return other->records.of(CameraDataKind::Frame).back().time >= end; }));
    return std::ranges::count_if(
        other->records.of(CameraDataKind::Frame),
        [&](const Record& frame) { return frame.time > begin && frame.time <= end; });
  }

  static constexpr std::ptrdiff_t kFrames = 6;
  std::uint32_t number = 0;
  std::unique_ptr<TestHost> other;
};

TEST_F(RateTest, FollowsWhatTheVmTakes) {
  start({"--camera", "test:A,160x120@30"});
  share();
  EXPECT_TRUE(eventually([&] {
    sayThreeFrames();
    return othersFrames() >= 2 * kFrames;
  }));
}

TEST_F(RateTest, WithoutRateControlItDoesNot) {
  start({"--camera", "test:A,160x120@30"});
  host().policy({{"cameraEnableFRC", "OFF"}});
  share();
  sayThreeFrames();
  EXPECT_LT(othersFrames(), 2 * kFrames);
}

}  // namespace
}  // namespace lumsar::test
