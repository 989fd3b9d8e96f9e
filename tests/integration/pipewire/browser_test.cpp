// A web page in Chromium that uses the camera: the longest way to a consumer, through the desktop's
// portal, which asks the user. Here the user's answer is stored before.
#include <gtest/gtest.h>

#include "integration/pipewire/camera_page.h"
#include "integration/pipewire/pipewire_fixture.h"
#include "unit/agent/outputs/browser.h"

namespace lumsar::test {
namespace {

class PipewireBrowser : public Pipewire {
 protected:
  void SetUp() override {
    if (!Browser::installed()) GTEST_SKIP() << "no browser; install chromium";
    Pipewire::SetUp();
    if (IsSkipped()) return;
    if (!permitsCameras()) GTEST_SKIP() << "no permission store; install xdg-desktop-portal";
  }
};

TEST_F(PipewireBrowser, ShowsACamera) {
  shareCamera();
  writeFile(folder / "page.html", kCameraPage);
  Browser browser("file://" + (folder / "page.html"),
                  {{"--enable-features=WebRtcPipeWireCamera", "--use-fake-ui-for-media-stream"},
                   stack->session().environment});
  ASSERT_EQ(browser.problem(), "");
  ASSERT_TRUE(isStarted()) << browser.evaluate("problem");
  EXPECT_TRUE(sendUntil([&] { return browser.evaluate("frames > 20") == "true"; },
                        [&] { send(grey(200)); }))
      << browser.evaluate("problem");
  EXPECT_NEAR(std::stoi(browser.evaluate("level()")), 200,
              20);  // not all of the range is seen as such
  EXPECT_EQ(browser.evaluate("video.videoWidth"), "640");
  EXPECT_EQ(browser.evaluate("video.srcObject.getTracks()[0].label"), "Front");
  browser.kill();
  EXPECT_TRUE(isStopped());
}

}  // namespace
}  // namespace lumsar::test
