// Programs that people have, in a VM: each takes the camera by itself, through the kernel.
#include "integration/vm/support/camera_vm.h"
#include "integration/vm/support/pictures.h"

namespace lumsar::test {
namespace {

using namespace std::chrono_literals;

constexpr milliseconds kProgramTime = 60s;

class GuestPrograms : public CameraVm {
 protected:
  void SetUp() override {
    CameraVm::SetUp();
    share("640x480@15");
  }
  bool has(const std::string& program) {
    return guest().run("test -x /programs/usr/bin/" + program).status == 0;
  }
  // A command in the root that has this machine's programs.
  Guest::Result run(const std::string& command, milliseconds time = kProgramTime) {
    return guest().run(
        "HOME=/tmp XDG_RUNTIME_DIR=/tmp PATH=/usr/bin:/bin chroot /programs " + command, time);
  }
  // The frames that a program has saved in /tmp/frames are those that were sent.
  void expectSaved(const Guest::Result& program, std::size_t count) {
    ASSERT_EQ(program.status, 0) << program.output;
    const auto saved = pictureHashes(guest().run("guest_reader /tmp/frames").output);
    ASSERT_EQ(saved.size(), count) << program.output;
    expectInOrder(saved, user().picturesSent());
  }
};

TEST_F(GuestPrograms, V4l2Ctl) {
  if (!has("v4l2-ctl")) GTEST_SKIP() << "install v4l-utils";
  const auto listed = run("v4l2-ctl --list-devices");
  EXPECT_NE(listed.output.find("/dev/video20"), std::string::npos) << listed.output;
  expectSaved(
      run("v4l2-ctl -d /dev/video20 --stream-mmap --stream-count=30 --stream-to=/tmp/frames"), 30);
}

TEST_F(GuestPrograms, Ffmpeg) {
  if (!has("ffmpeg")) GTEST_SKIP() << "install ffmpeg";
  expectSaved(run("ffmpeg -y -f v4l2 -i /dev/video20 -frames 30 -c copy -f mjpeg /tmp/frames"), 30);
}

TEST_F(GuestPrograms, GStreamer) {
  if (!has("gst-launch-1.0")) GTEST_SKIP() << "install gstreamer1.0-tools";
  expectSaved(run("env GST_REGISTRY=/tmp/registry gst-launch-1.0 v4l2src device=/dev/video20 "
                  "num-buffers=30 ! image/jpeg ! filesink location=/tmp/frames"),
              30);
}

// What systemd does for the group "video", by hand.
TEST_F(GuestPrograms, ProgramOfAUser) {
  if (!has("v4l2-ctl")) GTEST_SKIP() << "install v4l-utils";
  const std::string save =
      "/usr/sbin/chroot --userspec=nobody:video / v4l2-ctl -d /dev/video20 --stream-mmap "
      "--stream-count=10 --stream-to=/tmp/frames";
  guest().run("rm -f /tmp/frames; chmod 600 /dev/video20");
  EXPECT_NE(run(save).status, 0);
  guest().run("chown 0:44 /dev/video20; chmod 660 /dev/video20; chmod 1777 /tmp");
  expectSaved(run(save), 10);
}

TEST_F(GuestPrograms, AfterAProgramThatWasKilled) {
  if (!has("v4l2-ctl") || !has("ffmpeg")) GTEST_SKIP() << "install v4l-utils and ffmpeg";
  guest().start("killed", "chroot /programs /usr/bin/ffmpeg -f v4l2 -i /dev/video20 -f null -");
  ASSERT_TRUE(guest().expectIn("killed", "Stream mapping", kProgramTime));
  guest().run("killall -KILL ffmpeg");
  expectSaved(
      run("v4l2-ctl -d /dev/video20 --stream-mmap --stream-count=30 --stream-to=/tmp/frames"), 30);
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
