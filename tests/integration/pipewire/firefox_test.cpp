// The same page in Firefox, which says by HTTP what it shows.
#include <unistd.h>

#include "integration/pipewire/camera_page.h"
#include "integration/pipewire/pipewire_fixture.h"

namespace lumsar::test {
namespace {

constexpr const char* kFirefox = "/usr/bin/firefox-esr";
constexpr const char* kPreferences =
    "user_pref('media.webrtc.camera.allow-pipewire', true);\n"
    "user_pref('media.navigator.permission.disabled', true);\n"
    "user_pref('media.autoplay.default', 0);\n"
    "user_pref('network.captive-portal-service.enabled', false);\n"
    "user_pref('network.connectivity-service.enabled', false);\n"
    "user_pref('datareporting.policy.dataSubmissionEnabled', false);\n"
    "user_pref('app.normandy.enabled', false);\n"
    "user_pref('browser.safebrowsing.downloads.remote.enabled', false);\n";

class PipewireFirefox : public Pipewire {
 protected:
  void SetUp() override {
    if (access(kFirefox, X_OK) != 0) GTEST_SKIP() << "no Firefox; install firefox-esr";
    Pipewire::SetUp();
    if (IsSkipped()) return;
    if (!permitsCameras()) GTEST_SKIP() << "no permission store; install xdg-desktop-portal";
  }
  void startBrowser() {
    std::filesystem::create_directory(folder / "profile");
    writeFile(folder / "profile/user.js", kPreferences);
    writeFile(folder / "page.html", kCameraPage + reportTo(m_reports.port()));
    m_browser.emplace(Process::Words{kFirefox, "--headless", "--no-remote", "--profile",
                                     folder / "profile", "file://" + (folder / "page.html")},
                      stack->session({{"HOME", folder.path()}, {"MOZ_HEADLESS", "1"}}));
  }
  static std::string reportTo(int port) {
    return "<script>setInterval(() => fetch('http://127.0.0.1:" + std::to_string(port) +
           "/' + [frames > 20, frames ? level() : 0, video.videoWidth, problem].join('/')"
           ", {mode: 'no-cors'}), 200)</script>";
  }
  // The latest report: "GET /true/200/640/ HTTP/1.1".
  const std::string& report() {
    const RawPeer peer = m_reports.accept(milliseconds(0));
    if (!peer.connected()) return m_report;
    m_report = textOf(peer.read(64));
    peer.send(bytesOf("HTTP/1.1 204 No Content\r\nConnection: close\r\n\r\n"));
    return m_report;
  }

  const RawListener m_reports{"tcp:0"};
  std::string m_report;
  std::optional<Process> m_browser;
};

TEST_F(PipewireFirefox, ShowsACamera) {
  shareCamera();
  startBrowser();
  ASSERT_TRUE(isStarted()) << report() << m_browser->output();
  EXPECT_TRUE(
      sendUntil([&] { return report().starts_with("GET /true/"); }, [&] { send(grey(200)); }))
      << report() << m_browser->output();
  int shown = 0;
  int width = 0;
  EXPECT_EQ(std::sscanf(report().c_str(), "GET /true/%d/%d/", &shown, &width), 2) << report();
  EXPECT_NEAR(shown, 200, 20);  // not all of the range is seen as such
  EXPECT_EQ(width, 640);
  m_browser->stop(SIGKILL);
  EXPECT_TRUE(isStopped());
}

}  // namespace
}  // namespace lumsar::test
