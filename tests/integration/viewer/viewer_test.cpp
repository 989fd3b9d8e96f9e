// Cameras in a viewer that knows nothing of them: a real guest, an unmodified viewer with the
// module, and a hand at keyboard and mouse.
#include <csignal>
#include <filesystem>

#include "integration/viewer/desktop_viewer.h"

namespace lumsar::test {
namespace {

TEST_F(DesktopViewer, CameraIsSharedByKeyboardAndTakenBack) {
  begin();
  openCameras();
  EXPECT_FALSE(device().starts_with("capture device"));
  ASSERT_TRUE(share("space"));
  ASSERT_TRUE(cameraIsThere());
  expectPictures(25);
  ASSERT_TRUE(unshare("space"));
  EXPECT_TRUE(cameraIsGone());
}

TEST_F(DesktopViewer, CameraIsSharedByAClickAndTheDesktopIsClosedWhileItStreams) {
  begin();
  openCameras();
  ASSERT_TRUE(does("is shared with VM", [this] { screen().click(m_cameras, 50, 88); }));
  ASSERT_TRUE(cameraIsThere());
  startReader();
  ASSERT_TRUE(reading());
  EXPECT_FALSE(processes().empty());
  closeByMouse(m_desktop);
  EXPECT_EQ(viewer().wait(), 0);
  EXPECT_TRUE(user().service().says("disconnected"));
  EXPECT_TRUE(eventually([this] { return processes().empty(); }));
  EXPECT_FALSE(std::filesystem::exists(user().directory() / "home/lumsar"));
  EXPECT_TRUE(cameraIsGone());
}

// Both cross the same connection.
TEST_F(DesktopViewer, TheDesktopChangesWhileACameraStreams) {
  shareCamera();
  ASSERT_TRUE(escape());
  startReader();
  ASSERT_TRUE(reading());
  for (const char* colour : {"w", "p", "w"}) {
    const std::string before = screen().picture();
    // The memory of its text screen, each character in this colour.
    guest().run(std::string("tr '\\0' ") + colour +
                " </dev/zero | dd of=/dev/mem bs=4096 seek=$((0xb8000 / 4096)) count=1");
    // Far more than a cursor that blinks.
    EXPECT_TRUE(eventually([&] { return screen().differs(before) > 10'000; }));
  }
  EXPECT_TRUE(reading());
}

TEST_F(DesktopViewer, TheCameraWindowShowsWhatGoesToTheVm) {
  shareCamera();
  expectPreview();
}

TEST_F(DesktopViewer, TheCameraWindowShowsH264ThatGoesToTheVm) {
  const std::string config = user().directory() / "viewer.json";
  writeFile(config, R"({"encode_type": "H264"})");
  shareCamera({{"LUMSAR_CONFIG", config}});
  expectPreview();
}

TEST_F(DesktopViewer, WhatIsRememberedIsSharedAgainByTheNextViewer) {
  shareCamera();
  const Path choices = user().directory() / "home/lumsar/viewer.json";
  ASSERT_TRUE(screen().press(m_cameras, "alt+r"));
  ASSERT_TRUE(eventually([&] { return std::filesystem::exists(choices); }));
  viewer().stop(SIGTERM);
  EXPECT_TRUE(cameraIsGone());
  startViewer();
  EXPECT_TRUE(cameraIsThere());
}

TEST_F(DesktopViewer, ServiceThatStartsLateAndAgain) {
  startGuestAgent();
  startViewer();
  ASSERT_TRUE(viewer().says("no camera service"));
  ASSERT_TRUE(user().startService());
  ASSERT_TRUE(viewer().says("VM answered"));
  m_desktop = screen().window("--class", "remote-viewer");
  openCameras();
  ASSERT_TRUE(share());
  ASSERT_TRUE(cameraIsThere());
  startReader();
  ASSERT_TRUE(reading());
  user().killService();
  EXPECT_TRUE(cameraIsGone());
  ASSERT_TRUE(user().startService());
  EXPECT_TRUE(cameraIsThere());
  expectPictures(5);
}

TEST_F(DesktopViewer, ServiceThatHangsWhileItStreams) {
  shareCamera();
  startReader();
  ASSERT_TRUE(reading());
  user().service().signal(SIGSTOP);
  EXPECT_TRUE(escape()) << "the desktop goes on";
  user().service().signal(SIGCONT);
  EXPECT_TRUE(reading());
}

// Whatever it was asked to do.
TEST_F(DesktopViewer, IsClosedWhileTheServiceHangs) {
  shareCamera();
  user().service().signal(SIGSTOP);
  ASSERT_TRUE(screen().press(m_cameras, "space"));
  closeByMouse(m_desktop);
  EXPECT_EQ(viewer().wait(), 0);
  user().service().signal(SIGCONT);
}

TEST_F(DesktopViewer, GuestAgentThatIsStartedAgain) {
  shareCamera();
  guest().run("killall -KILL lumsar-agent");
  startGuestAgent();
  EXPECT_TRUE(viewer().says("VM answered", 2));
  EXPECT_TRUE(cameraIsThere());
  expectPictures(5);
}

TEST_F(DesktopViewer, GuestThatReboots) {
  shareCamera();
  startReader();
  ASSERT_TRUE(reading());
  guest().run("touch /tmp/before");
  guest().order("reboot -f");
  ASSERT_TRUE(eventually(
      [this] { return guest().awaitShell() && guest().run("test -e /tmp/before").status == 1; }));
  startGuestAgent();
  EXPECT_TRUE(cameraIsThere());
  expectPictures(5);
}

// A SPICE server serves one client at a time.
TEST_F(DesktopViewer, AnotherClientTakesTheConnection) {
  shareCamera();
  user().startHost(guest().address());
  EXPECT_TRUE(viewer().says("the viewer's connection to the VM has ended"));
  ASSERT_TRUE(user().host().expect("VM answered"));
  ASSERT_TRUE(user().command("share 0"));
  const auto devices = [this] { return guest().run("grep -c 'is /dev/video' /tmp/vm.log").output; };
  EXPECT_TRUE(eventually([&] { return devices() == "2\n"; }));
}

TEST_F(DesktopViewer, CamerasTakeTheKeyboardFromTheDesktopBelowThePointer) {
  begin();
  screen().movePointer(300, 300);
  openCameras(false);
  EXPECT_TRUE(escape());
}

// What the thread that draws the desktop cannot get rid of is refused, and the desktop goes on.
TEST_F(DesktopViewer, FloodWhileTheServiceHangsCostsThePortOnly) {
  begin();
  guest().run("killall -KILL lumsar-agent");
  user().service().signal(SIGSTOP);
  // What comes before a handshake would only be dropped.
  std::string steps = "hello answer";
  for (int i = 0; i < 200; ++i) steps += " data:1000000:1000000";
  agent(steps);
  EXPECT_TRUE(viewer().says("the VM sends more than the camera service takes; port closed"));
  openCameras();
  user().service().signal(SIGCONT);
  closeByMouse(m_desktop);
  EXPECT_EQ(viewer().wait(), 0);
}

// A desktop without cameras is worth more than none.
TEST_F(DesktopViewer, EndsCleanlyWhateverIsMissing) {
  startViewer();
  ASSERT_TRUE(viewer().says("no camera service"));
  m_desktop = screen().window("--class", "remote-viewer");
  openCameras();
  EXPECT_TRUE(escape());
  closeByMouse(m_desktop);
  EXPECT_EQ(viewer().wait(), 0);
}

// It has no GApplication to tell of its end, nor a header bar that could say that a camera is in
// use.
TEST_F(DesktopViewer, AnotherViewer) {
  ASSERT_TRUE(user().startService());
  startGuestAgent();
  start({"spicy", "--uri=" + guest().address()});
  ASSERT_TRUE(viewer().says("VM answered"));
  m_desktop = screen().window("--class", "spicy");
  openCameras();
  ASSERT_TRUE(share());
  ASSERT_TRUE(cameraIsThere());
  ASSERT_TRUE(escape());
  expectPictures(5);
  startReader();
  EXPECT_TRUE(eventually([this] { return screen().hasWindow("--name", "^Cameras$"); }))
      << "a person knows when they are seen";
}

}  // namespace
}  // namespace lumsar::test
