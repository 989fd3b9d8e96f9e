// Programs that people have, in a VM: each takes frames from the kernel's device by itself.
#include "integration/vm/support/camera_vm.h"
#include "integration/vm/support/pictures.h"

namespace lumsar::test {
namespace {

using namespace std::chrono_literals;

constexpr milliseconds kProgramTime = 60s;
constexpr std::size_t kFrames = 15;
constexpr const char* kV4l2Ctl =
    "v4l2-ctl -d /dev/video20 --stream-mmap --stream-count=15 --stream-to=/tmp/frames";

class GuestPrograms : public CameraVm {
 protected:
  void SetUp() override {
    CameraVm::SetUp();
    // So slow that no program meets a buffer that the kernel module writes over.
    share("640x480@5");
  }
  // Another program, which keeps the camera on: nothing but its frames is to be seen.
  void keepCameraOn() {
    startReader();
    ASSERT_TRUE(reading());
  }
  bool has(const std::string& program) {
    return guest().run("test -x /programs/usr/bin/" + program).status == 0;
  }
  // A command in the root that has this machine's programs.
  Guest::Result run(const std::string& command, milliseconds time = kProgramTime) {
    return guest().run(
        "HOME=/tmp XDG_RUNTIME_DIR=/tmp PATH=/usr/bin:/bin chroot /programs " + command, time);
  }
  // A program that saves frames in /tmp/frames saves those that were sent.
  void expectSaved(const std::string& command) {
    keepCameraOn();
    const auto program = run(command);
    ASSERT_EQ(program.status, 0) << program.output;
    auto saved = pictureHashes(guest().run("guest_reader /tmp/frames").output);
    // The first buffer from the kernel module is an old one of a wrong size, and the next frame is
    // lost in the file with it.
    ASSERT_GE(saved.size(), kFrames - 1) << program.output;
    saved.erase(saved.begin());
    expectInOrder(saved, user().picturesSent());
  }
};

TEST_F(GuestPrograms, V4l2Ctl) {
  if (!has("v4l2-ctl")) GTEST_SKIP() << "install v4l-utils";
  const auto listed = run("v4l2-ctl --list-devices");
  EXPECT_NE(listed.output.find("/dev/video20"), std::string::npos) << listed.output;
  expectSaved(kV4l2Ctl);
}

TEST_F(GuestPrograms, Ffmpeg) {
  if (!has("ffmpeg")) GTEST_SKIP() << "install ffmpeg";
  expectSaved("ffmpeg -y -f v4l2 -i /dev/video20 -frames 15 -c copy -f mjpeg /tmp/frames");
}

TEST_F(GuestPrograms, GStreamer) {
  if (!has("gst-launch-1.0")) GTEST_SKIP() << "install gstreamer1.0-tools";
  expectSaved(
      "env GST_REGISTRY=/tmp/registry gst-launch-1.0 v4l2src device=/dev/video20 "
      "num-buffers=15 ! image/jpeg ! filesink location=/tmp/frames");
}

// What systemd does for the group "video", by hand.
TEST_F(GuestPrograms, ProgramOfAUser) {
  if (!has("v4l2-ctl")) GTEST_SKIP() << "install v4l-utils";
  const std::string asUser = "/usr/sbin/chroot --userspec=nobody:video / ";
  guest().run("rm -f /tmp/frames; chmod 1777 /tmp; chmod 600 /dev/video20");
  EXPECT_NE(run(asUser + kV4l2Ctl).status, 0);
  guest().run("chown 0:44 /dev/video20; chmod 660 /dev/video20");
  expectSaved(asUser + kV4l2Ctl);
}

TEST_F(GuestPrograms, KilledOneSwitchesTheCameraOff) {
  if (!has("ffmpeg")) GTEST_SKIP() << "install ffmpeg";
  guest().start("killed", "chroot /programs /usr/bin/ffmpeg -f v4l2 -i /dev/video20 -f null -");
  ASSERT_TRUE(guest().expectIn("vm", "has a consumer, starting it", kProgramTime));
  guest().run("killall -KILL ffmpeg");
  EXPECT_TRUE(guest().expectIn("vm", "no longer has a consumer"));
}

constexpr const char* kPage = R"(<!doctype html><video autoplay muted></video><script>
const video = document.querySelector('video');
const seen = new Set();
let frames = 0;
function pixels() {
  const canvas = new OffscreenCanvas(64, 48);
  const context = canvas.getContext('2d');
  context.drawImage(video, 0, 0, canvas.width, canvas.height);
  return context.getImageData(0, 0, canvas.width, canvas.height).data;
}
function count() {
  seen.add(pixels().reduce((sum, value, at) => (sum * 31 + value) % 4294967291));
  const size = video.videoWidth + 'x' + video.videoHeight;
  if (++frames == 20) fetch('/cgi-bin/done?' + size + ',' + seen.size + ',');
  else video.requestVideoFrameCallback(count);
}
video.requestVideoFrameCallback(count);
const start = () => navigator.mediaDevices.getUserMedia({video: true})
  .then(stream => { video.srcObject = stream; })
  .catch(error => { fetch('/cgi-bin/failed?' + error); setTimeout(start, 500); });
start();
</script>)";

class GuestBrowser : public GuestPrograms {
 protected:
  void SetUp() override {
    GuestPrograms::SetUp();
    guest().run(
        "rm -rf /tmp/done /tmp/failed /www; mkdir -p /www/cgi-bin; cat >/www/page.html <<'END'\n" +
        std::string(kPage) + "\nEND");
    for (const std::string script : {"done", "failed"}) {
      guest().run("cat >/www/cgi-bin/" + script +
                  " <<'END'\n#!/bin/sh\necho \"$QUERY_STRING\" >/tmp/" + script +
                  "\nprintf 'Content-Type: text/plain\\r\\n\\r\\n'\nEND\nchmod +x /www/cgi-bin/" +
                  script);
    }
    guest().run("killall httpd; httpd -p 127.0.0.1:8000 -h /www");
  }
  void TearDown() override {
    guest().run("killall -KILL chromium firefox-esr httpd; true");
    GuestPrograms::TearDown();
  }
  // Emulated, a browser takes half a minute to start.
  void expectFrames(const std::string& browser) {
    guest().start("browser",
                  "env HOME=/tmp XDG_RUNTIME_DIR=/tmp PATH=/usr/bin:/bin chroot /programs " +
                      browser + " http://127.0.0.1:8000/page.html");
    const bool done =
        eventually([this] { return guest().run("test -s /tmp/done").status == 0; }, 240s);
    const std::string result = guest().run("cat /tmp/done").output;
    EXPECT_TRUE(done) << guest().run("cat /tmp/failed; tail /tmp/browser.log").output;
    EXPECT_TRUE(result.starts_with("640x480,")) << result;
    // A camera whose clock runs on; a slow browser may see a frame twice.
    EXPECT_GT(std::atoi(result.substr(result.find(',') + 1).c_str()), 10) << result;
  }
};

TEST_F(GuestBrowser, Chromium) {
  if (!has("chromium")) GTEST_SKIP() << "install chromium";
  expectFrames(
      "chromium --headless --no-sandbox --disable-gpu --no-first-run "
      "--disable-background-networking --disable-component-update --disable-sync "
      "--use-fake-ui-for-media-stream --user-data-dir=/tmp/chromium");
}

TEST_F(GuestBrowser, Firefox) {
  if (!has("firefox-esr")) GTEST_SKIP() << "install firefox-esr";
  guest().run(
      "mkdir -p /tmp/firefox; cat >/tmp/firefox/user.js <<'END'\n"
      "user_pref('media.navigator.permission.disabled', true);\n"
      "user_pref('browser.shell.checkDefaultBrowser', false);\n"
      "user_pref('datareporting.policy.dataSubmissionEnabled', false);\nEND");
  expectFrames("firefox-esr --headless --no-remote --profile /tmp/firefox");
}

}  // namespace
}  // namespace lumsar::test
