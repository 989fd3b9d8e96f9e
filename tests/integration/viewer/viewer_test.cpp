// Cameras in a viewer that knows nothing of them: a real guest, an unmodified viewer with the
// module, and a hand at keyboard and mouse.
#include <csignal>

#include "integration/viewer/screen.h"
#include "integration/vm/support/camera_vm.h"

namespace lumsar::test {
namespace {

class Viewer : public CameraVm {
 protected:
  void SetUp() override {
    CameraVm::SetUp();
    ASSERT_TRUE(m_screen.isUp());
  }
  void TearDown() override {
    if (HasFailure() && m_viewer) std::printf("%s\n", m_viewer->output().c_str());
    m_viewer.reset();
    CameraVm::TearDown();
  }

  void startViewer(const std::string& program = "remote-viewer") {
    auto environment = m_screen.environment(user().directory());
    environment.merge(user().hostEnvironment());
    m_viewer = std::make_unique<Process>(
        std::vector<std::string>{LUMSAR_VIEWER, program, guest().address()},
        ProcessSetup{.environment = environment});
  }
  void startGuestAgent() { guest().start("vm", "lumsar-agent --v4l2 --verbose"); }
  // Everything up to a guest that has answered.
  void begin() {
    ASSERT_TRUE(user().startService());
    startGuestAgent();
    startViewer();
    ASSERT_TRUE(viewer().says("VM answered"));
    m_desktop = screen().window("--class", "remote-viewer");
  }
  // A desktop below the pointer has the keyboard for itself.
  void openCameras(bool pointerIsAway = true) {
    if (pointerIsAway) screen().movePointer(1270, 890);
    ASSERT_TRUE(screen().press(m_desktop, "ctrl+alt+c"));
    m_cameras = screen().window("--name", "^Cameras$");
  }
  // Keys that come while the window appears are the desktop's.
  bool escape() {
    return eventually([this] {
      screen().press(m_cameras, "Escape");
      return !screen().hasWindow("--name", "^Cameras$");
    });
  }
  // The close button of a window's header bar.
  void closeByMouse(const std::string& window) { screen().click(window, 26, 27); }

  Process& viewer() { return *m_viewer; }
  Screen& screen() { return m_screen; }

  std::string m_desktop, m_cameras;

 private:
  Screen m_screen;
  std::unique_ptr<Process> m_viewer;
};

TEST_F(Viewer, CameraIsSharedByKeyboardAndTakenBack) {
  begin();
  openCameras();
  EXPECT_FALSE(device().starts_with("capture device"));
  ASSERT_TRUE(screen().press(m_cameras, "space"));
  ASSERT_TRUE(cameraIsThere());
  expectPictures(25);
  ASSERT_TRUE(screen().press(m_cameras, "space"));
  EXPECT_TRUE(cameraIsGone());
}

TEST_F(Viewer, CameraIsSharedByAClickAndTheDesktopIsClosedWhileItStreams) {
  begin();
  openCameras();
  screen().click(m_cameras, 50, 88);
  ASSERT_TRUE(cameraIsThere());
  startReader();
  ASSERT_TRUE(reading());
  closeByMouse(m_desktop);
  EXPECT_EQ(viewer().wait(), 0);
  EXPECT_TRUE(user().service().says("disconnected"));
  EXPECT_TRUE(cameraIsGone());
}

TEST_F(Viewer, WhatIsRememberedIsSharedAgainByTheNextViewer) {
  begin();
  openCameras();
  ASSERT_TRUE(screen().press(m_cameras, "space"));
  ASSERT_TRUE(cameraIsThere());
  ASSERT_TRUE(screen().press(m_cameras, "alt+r"));
  const Path choices = user().directory() / "home/lumsar/viewer.json";
  ASSERT_TRUE(eventually([&] { return std::filesystem::exists(choices); }));
  viewer().stop(SIGTERM);
  EXPECT_TRUE(cameraIsGone());
  startViewer();
  EXPECT_TRUE(cameraIsThere());
}

TEST_F(Viewer, ServiceThatStartsLateAndAgain) {
  startGuestAgent();
  startViewer();
  ASSERT_TRUE(viewer().says("no camera service"));
  ASSERT_TRUE(user().startService());
  ASSERT_TRUE(viewer().says("VM answered"));
  m_desktop = screen().window("--class", "remote-viewer");
  openCameras();
  ASSERT_TRUE(screen().press(m_cameras, "space"));
  ASSERT_TRUE(cameraIsThere());
  user().killService();
  EXPECT_TRUE(cameraIsGone());
  ASSERT_TRUE(user().startService());
  EXPECT_TRUE(cameraIsThere());
  expectPictures(5);
}

TEST_F(Viewer, GuestAgentThatIsStartedAgain) {
  begin();
  openCameras();
  ASSERT_TRUE(screen().press(m_cameras, "space"));
  ASSERT_TRUE(cameraIsThere());
  guest().run("killall -KILL lumsar-agent");
  startGuestAgent();
  EXPECT_TRUE(viewer().says("VM answered", 2));
  EXPECT_TRUE(cameraIsThere());
  expectPictures(5);
}

TEST_F(Viewer, CamerasTakeTheKeyboardFromTheDesktopBelowThePointer) {
  begin();
  screen().movePointer(300, 300);
  openCameras(false);
  EXPECT_TRUE(escape());
}

// What the thread that draws the desktop cannot get rid of is refused, and the desktop goes on.
TEST_F(Viewer, FloodWhileTheServiceHangsCostsThePortOnly) {
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
TEST_F(Viewer, EndsCleanlyWhateverIsMissing) {
  startViewer();
  ASSERT_TRUE(viewer().says("no camera service"));
  m_desktop = screen().window("--class", "remote-viewer");
  openCameras();
  EXPECT_TRUE(escape());
  closeByMouse(m_desktop);
  EXPECT_EQ(viewer().wait(), 0);
}

// It has no GApplication to tell of its end.
TEST_F(Viewer, AnotherViewer) {
  ASSERT_TRUE(user().startService());
  startGuestAgent();
  auto environment = screen().environment(user().directory());
  environment.merge(user().hostEnvironment());
  Process spicy({LUMSAR_VIEWER, "spicy", "--uri=" + guest().address()},
                {.environment = environment});
  ASSERT_TRUE(spicy.says("VM answered")) << spicy.output();
  m_desktop = screen().window("--class", "spicy");
  openCameras();
  ASSERT_TRUE(screen().press(m_cameras, "space"));
  ASSERT_TRUE(cameraIsThere());
  expectPictures(5);
}

}  // namespace
}  // namespace lumsar::test
