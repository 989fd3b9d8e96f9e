// A web page in Chromium that uses the camera: the longest way to a consumer, through the desktop's
// portal, which asks the user. Here the user's answer is stored before.
#include <gtest/gtest.h>

#include "integration/pipewire/pipewire_fixture.h"
#include "unit/agent/outputs/browser.h"

namespace lumsar::test {
namespace {

constexpr const char* kPage = R"(<!doctype html><video autoplay muted></video><script>
let problem = '';
const video = document.querySelector('video');
let frames = 0;
const count = () => { ++frames; video.requestVideoFrameCallback(count); };
video.requestVideoFrameCallback(count);
const start = () => navigator.mediaDevices.getUserMedia({video: true})
  .then(stream => { video.srcObject = stream; problem = ''; })
  .catch(error => { problem = String(error); setTimeout(start, 500); });
start();
function level() {
  const canvas = new OffscreenCanvas(video.videoWidth, video.videoHeight);
  const context = canvas.getContext('2d');
  context.drawImage(video, 0, 0);
  return context.getImageData(canvas.width / 2, canvas.height / 2, 1, 1).data[1];
}
</script>)";

class PipewireBrowser : public Pipewire {
 protected:
  void SetUp() override {
    if (!Browser::installed()) GTEST_SKIP() << "no browser; install chromium";
    Pipewire::SetUp();
    if (IsSkipped()) return;
    Process permit(
        {"gdbus", "call", "--session", "--dest", "org.freedesktop.impl.portal.PermissionStore",
         "--object-path", "/org/freedesktop/impl/portal/PermissionStore", "--method",
         "org.freedesktop.impl.portal.PermissionStore.SetPermission", "devices", "true", "camera",
         "", "['yes']"},
        stack->session());
    if (permit.wait() != 0) GTEST_SKIP() << "no permission store; install xdg-desktop-portal";
  }
};

TEST_F(PipewireBrowser, ShowsACamera) {
  shareCamera();
  writeFile(folder / "page.html", kPage);
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
