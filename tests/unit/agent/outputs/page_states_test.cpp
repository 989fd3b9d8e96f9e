// What the page shows when there is nothing to see: no host, no camera, no lumsar-agent. Leaves
// vm-page-empty.png and vm-page-lost.png in the test's working directory.
#include <gtest/gtest.h>

#include <fstream>
#include <thread>

#include "app/program.h"
#include "support/raw_peer.h"
#include "support/temporary_directory.h"
#include "unit/agent/outputs/browser.h"

namespace lumsar::test {
namespace {

using namespace agent;

class RunningProgram {
 public:
  explicit RunningProgram(const Options& options)
      : m_program(options), m_channel([this] { m_program.run(); }) {}
  ~RunningProgram() {
    m_program.stop();
    m_channel.join();
  }
  RunningProgram(const RunningProgram&) = delete;
  RunningProgram& operator=(const RunningProgram&) = delete;

  std::uint16_t port() const { return m_program.viewPort(); }

 private:
  Program m_program;
  std::thread m_channel;
};

bool reads(Browser& browser, const std::string& text) {
  return browser.becomesTrue("document.body.innerText.includes('" + text + "')");
}

void keep(Browser& browser, const char* name) {
  writeFile(name, browser.screenshot());
}

TEST(PageStates, SaysWhatIsMissingAndNeverShowsAnOldFrameAsALiveOne) {
  if (!Browser::installed()) GTEST_SKIP() << "no browser; install chromium";
  const TemporaryDirectory folder;
  Options options;
  options.listen = "unix:" + (folder / "vm.sock");
  options.view = std::uint16_t{0};
  std::optional<RunningProgram> program(options);
  options.view = program->port();
  Browser browser("http://127.0.0.1:" + std::to_string(*options.view) + "/");
  ASSERT_EQ(browser.problem(), "");
  EXPECT_TRUE(reads(browser, "No host has connected yet"));

  std::optional<RawPeer> host(options.listen);
  EXPECT_TRUE(host->handshake());
  EXPECT_TRUE(reads(browser, "No camera is shared yet"));
  keep(browser, "vm-page-empty.png");

  host->send(message(MSG_DATA, record(CameraDataKind::Announced, 1,
                                      announcedBody("test:a", "Front", kEncodingMjpg, 640, 480))));
  EXPECT_TRUE(browser.becomesTrue("document.querySelectorAll('article').length == 1"));
  EXPECT_EQ(browser.evaluate("document.getElementById('empty').hidden"), "true");

  host.reset();
  program.reset();
  EXPECT_TRUE(reads(browser, "lumsar-agent does not respond"));
  EXPECT_TRUE(browser.becomesTrue("document.querySelectorAll('article').length == 0"));
  keep(browser, "vm-page-lost.png");

  program.emplace(options);
  EXPECT_TRUE(reads(browser, "No host has connected yet")) << "it connects again by itself";
}

}  // namespace
}  // namespace lumsar::test
