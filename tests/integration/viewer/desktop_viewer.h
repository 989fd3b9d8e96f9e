// DesktopViewer: the fixture of the tests with a real guest, an unmodified viewer with the module,
// and a hand at keyboard and mouse.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "integration/viewer/screen.h"
#include "integration/vm/support/camera_vm.h"
#include "support/temporary_directory.h"
#include "support/text.h"

namespace lumsar::test {

class DesktopViewer : public CameraVm {
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

  void startViewer(const std::map<std::string, std::string>& more = {}) {
    start({"remote-viewer", guest().address()}, more);
  }
  void start(std::vector<std::string> viewerCommand,
             const std::map<std::string, std::string>& more = {}) {
    viewerCommand.insert(viewerCommand.begin(), LUMSAR_VIEWER);
    startBare(viewerCommand, more);
  }
  // Without the module.
  void startBare(const std::vector<std::string>& viewerCommand,
                 const std::map<std::string, std::string>& more = {}) {
    auto environment = m_screen.environment(user().directory());
    environment.merge(user().hostEnvironment());
    for (const auto& [name, value] : more) environment[name] = value;
    m_viewer = std::make_unique<Process>(viewerCommand, ProcessSetup{.environment = environment});
  }
  void startGuestAgent() { guest().start("vm", "lumsar-agent --v4l2 --verbose"); }
  // Everything up to a guest that has answered.
  void begin(const std::map<std::string, std::string>& more = {}) {
    ASSERT_TRUE(user().startService());
    startGuestAgent();
    startViewer(more);
    ASSERT_TRUE(viewer().says("VM answered"));
    m_desktop = screen().window("--class", "remote-viewer");
  }
  // A desktop below the pointer has the keyboard for itself.
  void openCameras(bool pointerIsAway = true) {
    if (pointerIsAway) screen().movePointer(1270, 890);
    const bool opens = eventually([this] {
      screen().press(m_desktop, "ctrl+alt+c");
      return eventually([this] { return screen().hasWindow("--name", "^Cameras$"); }, kAtOnce);
    });
    ASSERT_TRUE(opens);
    m_cameras = screen().window("--name", "^Cameras$");
  }
  // Keys and clicks that come while a window appears or has no cameras yet are lost, so `action` is
  // repeated, with time for its effect, until the service says `what` once more.
  bool does(const std::string& what, const std::function<void()>& action) {
    const int before = user().service().countOf(what);
    return eventually([&] {
      action();
      return user().service().says(what, before + 1, kAtOnce * 4);
    });
  }
  bool share(const std::string& keys = "alt+a") {
    return does("is shared with VM", [&] { screen().press(m_cameras, keys); });
  }
  bool unshare(const std::string& keys = "alt+n") {
    return does("is no longer shared with VM", [&] { screen().press(m_cameras, keys); });
  }
  // A camera that is in the guest.
  void shareCamera(const std::map<std::string, std::string>& more = {}) {
    begin(more);
    openCameras();
    ASSERT_TRUE(share());
    ASSERT_TRUE(cameraIsThere());
  }
  // That its window has a preview of the camera while it is used.
  void expectPreview() {
    const auto pixels = [this] { return screen().count(0x20, 0x40, 0x60); };  // of its background
    EXPECT_LT(pixels(), 100U);
    startReader();
    EXPECT_TRUE(eventually([&] { return pixels() > 1000; }));
    stopReader();
    EXPECT_TRUE(eventually([&] { return pixels() < 100; }));
  }
  // The desktop gets the keyboard then, which a window manager would see to.
  bool escape() {
    const bool closes = eventually([this] {
      screen().press(m_cameras, "Escape");
      return !screen().hasWindow("--name", "^Cameras$");
    });
    return screen().press(m_desktop, "shift") && closes;
  }
  // The close button of a window's header bar.
  void closeByMouse(const std::string& window) { screen().click(window, 26, 27); }
  // The processes that the viewer has started, and itself.
  std::vector<std::string> processes() const {
    std::vector<std::string> found;
    const std::string home = "HOME=" + (user().directory() / "home").string();
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
      if (has(readFile(entry.path() / "environ"), home)) found.push_back(entry.path());
    }
    return found;
  }

  Process& viewer() { return *m_viewer; }
  Screen& screen() { return m_screen; }

  std::string m_desktop, m_cameras;

 private:
  Screen m_screen;
  std::unique_ptr<Process> m_viewer;
};

}  // namespace lumsar::test
