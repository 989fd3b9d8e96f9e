// What the page shows when there is nothing to see: no host, no camera, no lumsar-agent. Leaves
// vm-page-empty.png and vm-page-lost.png in the test's working directory.
#include <gtest/gtest.h>

#include "unit/agent/outputs/browser.h"
#include "unit/agent/program_fixture.h"

namespace lumsar::test {
namespace {

bool reads(Browser& browser, const std::string& text) {
  return browser.becomesTrue("document.body.innerText.includes('" + text + "')");
}

void keep(Browser& browser, const char* name) {
  writeFile(name, browser.screenshot());
}

using PageStates = ProgramFixture;

TEST_F(PageStates, SaysWhatIsMissingAndNeverShowsAnOldPictureAsALiveOne) {
  if (!Browser::installed()) GTEST_SKIP() << "no browser; install chromium";
  options.view = startWithPage();
  Browser browser(page());
  ASSERT_EQ(browser.problem(), "");
  EXPECT_TRUE(reads(browser, "No host has connected yet"));

  RawPeer host = newHost();
  EXPECT_TRUE(reads(browser, "No camera is shared yet"));
  keep(browser, "vm-page-empty.png");

  host.send(announce(1, "Front"));
  EXPECT_TRUE(browser.becomesTrue("document.querySelectorAll('article').length == 1"));
  EXPECT_EQ(browser.evaluate("document.getElementById('empty').hidden"), "true");

  host.close();
  program.reset();
  EXPECT_TRUE(reads(browser, "lumsar-agent does not respond"));
  EXPECT_TRUE(browser.becomesTrue("document.querySelectorAll('article').length == 0"));
  keep(browser, "vm-page-lost.png");

  options.viewKey = "another";
  start();
  EXPECT_TRUE(reads(browser, "This address is no longer valid"));

  program.reset();
  options.viewKey = kPageKey;
  start();
  EXPECT_TRUE(reads(browser, "No host has connected yet")) << "it connects again by itself";
}

}  // namespace
}  // namespace lumsar::test
