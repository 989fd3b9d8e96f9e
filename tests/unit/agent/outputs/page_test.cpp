// The page in a real browser without a screen: it watches the cameras, shows their frames, and
// leaves a screenshot, vm-page.png, in the test's working directory.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <set>

#include "unit/agent/outputs/browser.h"
#include "unit/agent/outputs/mosaic_jpeg.h"
#include "unit/agent/program_fixture.h"

namespace lumsar::test {
namespace {

using namespace agent;

// A landscape whose sun moves on with each frame.
Bytes landscape(int columns, int rows, double time, double hue) {
  return mosaicJpeg(columns, rows, [=](int x, int y) {
    const double u = static_cast<double>(x) / columns;
    const double v = static_cast<double>(y) / rows;
    const double sunX = 0.5 + 0.35 * std::cos(time + hue);
    const double distance = std::hypot((u - sunX) * columns / rows, v - 0.35);
    if (distance < 0.13) return Colour{255, 226, 120};
    const double hill = 0.68 + 0.07 * std::sin(u * 9 + hue * 3) + 0.04 * std::sin(u * 23 + hue);
    if (v > hill) return Colour{40 + 30 * hue, 110 - 40 * (v - hill), 60 + 20 * hue};
    return Colour{90 + 60 * hue + 110 * v, 150 + 60 * v, 235 - 50 * v - 30 * hue};
  });
}

class PageTest : public ProgramFixture {
 protected:
  PageTest() {
    startWithPage();
    host = newHost();
    host.send(join({camera(1, "usb-046d:082d-7F2E1C", "HD Pro Webcam C920", 1280, 720),
                    camera(2, "test:desk", "Schreibtisch \xe2\x80\x93 <oben>", 640, 480),
                    camera(3, "file:/srv/yard.mp4", "Yard", 640, 360)}));
  }
  ~PageTest() override {
    ended = true;
    if (service.joinable()) service.join();
  }
  static Bytes camera(std::uint32_t number, std::string_view id, std::string_view name,
                      std::uint16_t width, std::uint16_t height) {
    return message(MSG_DATA, record(CameraDataKind::Announced, number,
                                    announcedBody(id, name, kEncodingMjpg, width, height)));
  }
  void send(std::uint32_t number, std::uint32_t sequence, int columns, int rows) {
    const Bytes jpeg = landscape(columns, rows, sequence * 0.1, 0.5 * (number - 1));
    const Bytes body =
        frameBody(sequence, jpeg, kEncodingMjpg, kFrameIsKey,
                  static_cast<std::uint16_t>(columns * 8), static_cast<std::uint16_t>(rows * 8));
    const auto captured = cameraClock() - 7000 * number;
    host.send(message(MSG_DATA, record(CameraDataKind::Frame, number, body, captured)));
  }
  // The third camera sends no frames.
  void stream() {
    service = std::thread([this] {
      for (std::uint32_t i = 0; !ended; ++i) {
        send(1, i, 160, 90);
        send(2, i + i / 8, 80, 60);  // every eighth is lost
        std::this_thread::sleep_for(std::chrono::milliseconds(60));
      }
    });
  }

  RawPeer host;
  std::thread service;
  std::atomic<bool> ended{false};
};

TEST_F(PageTest, ShowsLiveFramesInABrowser) {
  if (!Browser::installed()) GTEST_SKIP() << "no browser; install chromium";
  stream();
  Browser browser(page());
  ASSERT_EQ(browser.problem(), "");
  EXPECT_TRUE(browser.becomesTrue(
      "[...document.querySelectorAll('canvas')].filter(canvas => !canvas.hidden).map("
      "canvas => canvas.width + 'x' + canvas.height).join() == '1280x720,640x480'"))
      << browser.evaluate("document.documentElement.outerHTML");
  for (const char* number :
       {"rate]').textContent.endsWith(' /s')", "latency]').textContent.endsWith(' ms')",
        "frames]').textContent > 0"}) {
    EXPECT_TRUE(browser.becomesTrue(std::string("document.querySelector('[data-of=") + number));
  }
  const std::string picture = browser.screenshot();
  EXPECT_GT(picture.size(), 30000U);
  EXPECT_TRUE(picture.starts_with("\x89PNG"));
  writeFile("vm-page.png", picture);
  browser.kill();
  // The page watches every camera that it shows, in an order of its own. When the browser has gone,
  // they no longer have a consumer.
  std::set<std::uint32_t> started;
  std::set<std::uint32_t> stopped;
  while (stopped.size() < 3) {
    const Bytes message = host.receive();
    ASSERT_FALSE(message.empty()) << started.size() << " started, " << stopped.size() << " stopped";
    View rest = View(message).subspan(kHeaderSize);
    const auto camera = take<CameraDataHeader>(rest)->camera;
    if (kindOf(message) == CameraDataKind::Start) started.insert(camera);
    if (kindOf(message) == CameraDataKind::Stop) stopped.insert(camera);
  }
  EXPECT_EQ(started, (std::set<std::uint32_t>{1, 2, 3}));
  EXPECT_EQ(stopped, started);
}

TEST_F(PageTest, ShowsMoreCamerasThanABrowserOpensConnections) {
  if (!Browser::installed()) GTEST_SKIP() << "no browser; install chromium";
  for (std::uint32_t number = 4; number <= 9; ++number) {
    host.send(camera(number, "test:" + std::to_string(number), "More", 160, 120));
  }
  service = std::thread([this] {
    for (std::uint32_t i = 0; !ended; ++i) {
      for (std::uint32_t number = 1; number <= 9; ++number) send(number, i, 20, 15);
      std::this_thread::sleep_for(std::chrono::milliseconds(60));
    }
  });
  Browser browser(page());
  ASSERT_EQ(browser.problem(), "");
  EXPECT_TRUE(
      browser.becomesTrue("[...document.querySelectorAll('canvas')].filter(canvas => "
                          "!canvas.hidden && canvas.width == 160).length == 9"))
      << browser.evaluate("document.documentElement.outerHTML");
  // And the status still comes.
  const std::string frames =
      browser.evaluate("document.querySelector('[data-of=frames]').textContent");
  EXPECT_TRUE(browser.becomesTrue("document.querySelector('[data-of=frames]').textContent != '" +
                                  frames + "'"));
}

TEST_F(PageTest, ShowsNamesAndNumbersAsTextOnly) {
  if (!Browser::installed()) GTEST_SKIP() << "no browser; install chromium";
  stream();
  Browser browser(page());
  ASSERT_EQ(browser.problem(), "");
  EXPECT_TRUE(browser.becomesTrue("document.querySelectorAll('article').length == 3"));
  std::string html;
  for (const char* part : {"HD Pro Webcam C920", "1280 \xc3\x97 720", "\xe2\x80\x93 &lt;oben&gt;",
                           "aria-label=\"Live view of Yard\"", ">connected<"}) {
    EXPECT_TRUE(eventually([&] {
      html = browser.evaluate("document.documentElement.outerHTML");
      return html.find(part) != std::string::npos;
    })) << part
        << " is not in " << html;
  }
}

}  // namespace
}  // namespace lumsar::test
