// Cameras of the user's machine inside a real guest: devices that its programs open, with the
// frames that the camera service has sent.
#include <csignal>

#include "integration/vm/support/camera_vm.h"
#include "support/slow_line.h"

namespace lumsar::test {
namespace {

using namespace std::chrono_literals;

class Cameras : public CameraVm {
 protected:
  // A camera is being read when the guest agent stalls.
  void stall() {
    share("1920x1080@30");
    ignoreTheLine();
    startReader();
    ASSERT_TRUE(reading());
    guest().run("killall -STOP lumsar-agent");
    ASSERT_TRUE(eventually([this] { return user().counter("dropped") > 0; }));
  }
};

TEST_F(Cameras, SharedCameraIsACaptureDevice) {
  EXPECT_EQ(guest().run("guest_reader /dev/video20 0").status, 1);
  share();
  EXPECT_NE(device().find("MJPG 320x240"), std::string::npos) << device();
}

TEST_F(Cameras, FramesAreThoseThatTheServiceSent) {
  share();
  expectPictures(25);
}

TEST_F(Cameras, UnshareTakesTheCameraAway) {
  share();
  startReader();
  EXPECT_TRUE(reading());
  EXPECT_TRUE(user().command(std::string("unshare ") + kCamera));
  EXPECT_TRUE(cameraIsGone());
  EXPECT_TRUE(user().command("share 0"));
  EXPECT_TRUE(cameraIsThere());
  expectPictures(5);
}

TEST_F(Cameras, UnshareAllTakesTheCameraAway) {
  share();
  EXPECT_TRUE(user().command("unshare-all"));
  EXPECT_TRUE(cameraIsGone());
}

TEST_F(Cameras, KilledServiceTakesTheCameraAwayAndBringsItBack) {
  share();
  startReader();
  EXPECT_TRUE(reading());
  user().killService();
  EXPECT_TRUE(user().host().expect("camera service lost: its connection closed"));
  EXPECT_TRUE(cameraIsGone());
  ASSERT_TRUE(user().startService());
  EXPECT_TRUE(user().host().expect("sharing test:Front again: done (0)"));
  EXPECT_TRUE(cameraIsThere());
  expectPictures(5);
}

// Frames pile up in front of a guest that takes none: they are dropped, and all else works.
TEST_F(Cameras, StalledGuest) {
  stall();
  const long before = user().host().ownMemory();
  const long droppedBefore = user().counter("dropped");
  EXPECT_TRUE(eventually([&] { return user().counter("dropped") > droppedBefore + 60; }));
  EXPECT_LT(user().host().ownMemory() - before, 16 * 1024);
  EXPECT_TRUE(user().command("list"));
  EXPECT_EQ(user().counter("refused"), 0);
  guest().run("killall -CONT lumsar-agent");
  EXPECT_TRUE(reading());
  EXPECT_TRUE(user().command("unshare-all"));
  EXPECT_TRUE(cameraIsGone());
}

// Frames wait all the time, and yet what the guest says is heard.
TEST_F(Cameras, LineThatIsTooThin) {
  const Path line = user().directory() / "line";
  const SlowLine slow(line.string(), guest().spiceSocket().string(), 500'000);
  share("1920x1080@30", "spice+unix://" + line.string());
  ignoreTheLine();
  startReader();
  ASSERT_TRUE(reading());
  EXPECT_TRUE(eventually([this] { return user().counter("dropped") > 10; }));
  stopReader();
  EXPECT_TRUE(user().service().expect("camera 'test:Front' is off"));
}

// All that waits between host and guest is for a program that has gone.
TEST_F(Cameras, VmSideThatStallsAndIsStartedAgain) {
  stall();
  guest().run("killall -KILL lumsar-agent");
  startAgent();
  EXPECT_TRUE(user().host().expect("sharing test:Front again: done (0)"));
  EXPECT_TRUE(cameraIsThere());
  stopReader();
  expectPictures(5);
}

TEST_F(Cameras, HostEndsBesideAStalledGuest) {
  stall();
  user().endHost();
}

// The next host begins while the guest still has bytes of the former one to read.
TEST_F(Cameras, BytesLeftOverFromAKilledHost) {
  share("1920x1080@30");
  startReader();
  ASSERT_TRUE(reading());
  guest().run("killall -STOP lumsar-agent");
  guest().run("sleep 2");
  user().host().signal(SIGKILL);
  user().host().wait();
  user().startHost(guest().address());
  ASSERT_TRUE(user().host().expect("channel to the VM is open"));
  guest().run("killall -CONT lumsar-agent");
  ASSERT_TRUE(user().host().expect("VM answered"));
  EXPECT_TRUE(guest().expectIn("vm", "removed: a new session begins"));
  EXPECT_TRUE(user().command("share 0"));
  EXPECT_TRUE(cameraIsThere());
  stopReader();
  expectPictures(5);
}

TEST_F(Cameras, GuestThatStartsAnewWhileStreaming) {
  share();
  startReader();
  ASSERT_TRUE(reading());
  guest().order("reboot -f");
  ASSERT_TRUE(user().host().expect("channel to the VM is closed"));
  ASSERT_TRUE(guest().awaitShell());
  startAgent();
  EXPECT_TRUE(user().host().expect("sharing test:Front again: done (0)"));
  EXPECT_TRUE(cameraIsThere());
  expectPictures(5);
}

TEST_F(Cameras, EmulatorThatIsKilledAndStartedAgain) {
  share();
  startReader();
  ASSERT_TRUE(reading());
  guest().pullThePlug();
  ASSERT_TRUE(user().host().expect("channel to the VM is closed"));
  ASSERT_TRUE(guest().boot());
  startAgent();
  EXPECT_TRUE(user().host().expect("sharing test:Front again: done (0)"));
  EXPECT_TRUE(cameraIsThere());
  expectPictures(5);
}

}  // namespace
}  // namespace lumsar::test
