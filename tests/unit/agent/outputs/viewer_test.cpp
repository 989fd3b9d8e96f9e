// The live page over HTTP: what each address answers, cameras that run only while watched, slow and
// hostile browsers.
#include "outputs/web/viewer.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <set>

#include "support/process.h"
#include "support/text.h"
#include "unit/agent/http.h"
#include "unit/agent/program_fixture.h"

namespace lumsar::test {
namespace {

using namespace agent;

class ViewerTest : public ProgramFixture {
 protected:
  ViewerTest() {
    host.send(announce(1, "Front <b>door"));
    EXPECT_TRUE(eventually([&] { return has(httpGet(port, "/status.json"), "Front"); }));
  }

  const std::uint16_t port = startWithPage();
  const RawPeer host = newHost();
};

TEST_F(ViewerTest, ShowsAPageThatNeedsNothingElse) {
  const std::string answer = httpGet(port, "/");
  EXPECT_TRUE(answer.starts_with("HTTP/1.1 200 OK\r\n"));
  EXPECT_TRUE(has(answer, "Content-Security-Policy: default-src 'none'"));
  EXPECT_TRUE(bodyOf(answer).starts_with("<!doctype html>"));
  EXPECT_FALSE(has(answer, "https://"));
  EXPECT_FALSE(has(answer, "http://"));
}

TEST_F(ViewerTest, AnswersWhatIsNotThereWithAReason) {
  EXPECT_TRUE(httpGet(port, "/nothing").starts_with("HTTP/1.1 404 "));
  for (const char* path :
       {"/camera/2.jpg", "/camera/x.jpg", "/camera/1.png", "/camera/", "/camera/1"}) {
    EXPECT_TRUE(httpGet(port, path).starts_with("HTTP/1.1 404 ")) << path;
  }
  EXPECT_TRUE(httpAsk(port, "POST / HTTP/1.1\r\n\r\n").starts_with("HTTP/1.1 405 "));
  EXPECT_TRUE(httpAsk(port, "nonsense\r\n\r\n").starts_with("HTTP/1.1 400 "));
  EXPECT_TRUE(
      httpAsk(port, "GET / HTTP/1.1\r\nHost: evil.example\r\n\r\n").starts_with("HTTP/1.1 403 "));
  EXPECT_EQ(httpAsk(port, std::string(20000, 'x')), "");
}

TEST_F(ViewerTest, NothingIsShownWithoutTheKey) {
  for (const char* path : {"/", "/status.json", "/camera/1.mjpeg", "/camera/1.jpg", "/nothing"}) {
    for (const char* query : {"", "?", "?key=", "?key=0123456789abcdee", "?key=0123456789abcdef0",
                              "?x=0123456789abcdef"}) {
      EXPECT_TRUE(httpAsk(port, requestFor(path, query)).starts_with("HTTP/1.1 403 "))
          << path << query;
    }
  }
  EXPECT_TRUE(
      httpAsk(port, requestFor("/", "?a=b&key=0123456789abcdef")).starts_with("HTTP/1.1 200 "));
}

TEST_F(ViewerTest, EachProgramHasAKeyOfItsOwn) {
  program.reset();
  options.viewKey.clear();
  std::set<std::string> addresses;
  for (int i = 0; i < 3; ++i) {
    testing::internal::CaptureStderr();
    startWithPage();
    const std::string log = testing::internal::GetCapturedStderr();
    const std::size_t key = log.find("/?key=");
    ASSERT_NE(key, std::string::npos) << log;
    const std::string query = log.substr(key + 1, log.find('\n', key) - key - 1);
    EXPECT_EQ(query.size(), 5U + 32U);
    EXPECT_TRUE(
        httpAsk((*program)->viewPort(), requestFor("/", query)).starts_with("HTTP/1.1 200 "));
    addresses.insert(query);
    program.reset();
  }
  EXPECT_EQ(addresses.size(), 3U);
}

TEST_F(ViewerTest, OtherUsersDoNotTakeAllPlaces) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can become somebody else";
  const std::string script = "for i in {1..100}; do exec {fd}<>/dev/tcp/127.0.0.1/" +
                             std::to_string(port) + " || exit 7; done; echo ready; read line";
  Process crowd({"/bin/bash", "-c", script}, {.input = true, .before = [] {
                                                if (setuid(12345) != 0) _exit(9);
                                              }});
  ASSERT_TRUE(crowd.says("ready"));
  EXPECT_TRUE(httpGet(port, "/").starts_with("HTTP/1.1 200 "));
}

TEST_F(ViewerTest, ACameraRunsOnlyWhileItIsWatched) {
  EXPECT_TRUE(has(httpGet(port, "/status.json"), R"("started":false)"));
  std::atomic<bool> done{false};
  std::thread browser([&] {
    const std::string live = httpGet(port, "/camera/1.mjpeg", 3500);
    done = true;
    EXPECT_TRUE(has(live, "multipart/x-mixed-replace; boundary=lumsar-picture"));
    EXPECT_TRUE(has(
        live,
        "--lumsar-picture\r\nContent-Type: image/jpeg\r\nContent-Length: 1000\r\n\r\n\xff\xd8"));
    EXPECT_TRUE(has(live, "\xff\xd9\r\n--lumsar-picture\r\n"));
  });
  ASSERT_TRUE(host.receiveRecord(CameraDataKind::Start, 1));
  // Frames that come faster than the stream takes them are left out.
  std::uint32_t sent = 0;
  EXPECT_TRUE(eventually([&] { return host.send(frame(1, sent++, blankJpeg())), done.load(); }));
  browser.join();
  EXPECT_TRUE(host.receiveRecord(CameraDataKind::Stop, 1));
}

TEST_F(ViewerTest, OneConnectionCarriesAllCamerasAndTheStatus) {
  host.send(announce(2, "Back"));
  EXPECT_TRUE(eventually([&] { return has(httpGet(port, "/status.json"), "Back"); }));
  std::string live;
  std::atomic<bool> done{false};
  std::thread browser([&] {
    live = httpGet(port, "/live/1,2", 30000);
    done = true;
  });
  for (const std::uint32_t camera : {1U, 2U}) {
    ASSERT_TRUE(host.receiveRecord(CameraDataKind::Start, camera)) << camera;
  }
  std::uint32_t sent = 0;
  EXPECT_TRUE(eventually([&] {
    host.send(frame(1, sent, blankJpeg(1000)));
    host.send(frame(2, sent++, blankJpeg(1500)));
    return done.load();
  }));
  browser.join();
  const std::string body = bodyOf(live);
  EXPECT_TRUE(body.starts_with("status ")) << body.substr(0, 100);
  EXPECT_TRUE(has(body, "\nframe 1 1000\n\xff\xd8"));
  EXPECT_TRUE(has(body, "\nframe 2 1500\n\xff\xd8"));
  EXPECT_TRUE(host.receiveRecord(CameraDataKind::Stop, 1));
}

TEST_F(ViewerTest, AConnectionWithoutCamerasCarriesTheStatusAgainAndAgain) {
  const std::string body = bodyOf(httpGet(port, "/live/", 2000));
  EXPECT_GT(occurrences(body, "\nstatus "), 0) << body;
  EXPECT_TRUE(has(body, R"("started":false)"));
}

TEST_F(ViewerTest, OfALiveConnectionOnlyNumbersAreTaken) {
  for (const char* path :
       {"/live", "/live/x", "/live/1,", "/live/1,,2", "/live/-1", "/live/1.jpg"}) {
    EXPECT_TRUE(httpGet(port, path).starts_with("HTTP/1.1 404 ")) << path;
  }
  EXPECT_TRUE(httpAsk(port, requestFor("/live/1", "")).starts_with("HTTP/1.1 403 "));
  // A camera that is not there may just have been removed.
  EXPECT_TRUE(httpGet(port, "/live/77", 1000).starts_with("HTTP/1.1 200 "));
}

TEST_F(ViewerTest, SendsOneImage) {
  std::string answer;
  std::thread browser([&] { answer = httpGet(port, "/camera/1.jpg"); });
  ASSERT_TRUE(host.receiveRecord(CameraDataKind::Start, 1));
  host.send(frame(1, 0, blankJpeg(5000)));
  browser.join();
  EXPECT_TRUE(has(answer, "Content-Type: image/jpeg\r\nContent-Length: 5000\r\n"));
  const Bytes jpeg = blankJpeg(5000);
  EXPECT_EQ(bodyOf(answer), std::string(jpeg.begin(), jpeg.end()));
}

TEST_F(ViewerTest, ASlowBrowserHoldsNothingUp) {
  const RawPeer lazy = connectTo(port);
  const std::string request = requestFor("/camera/1.mjpeg", std::string("?key=") + kPageKey);
  ASSERT_GT(send(lazy.fd(), request.data(), request.size(), 0), 0);
  ASSERT_TRUE(host.receiveRecord(CameraDataKind::Start, 1));
  const Bytes large = blankJpeg(1U << 20U);
  for (std::uint32_t i = 0; i < 60; ++i) host.send(frame(1, i, large));
  const auto body = host.receiveRecord(CameraDataKind::Statistics, 1);
  ASSERT_TRUE(body);
  EXPECT_TRUE(eventually([&] {
    const std::string status = bodyOf(httpGet(port, "/status.json"));
    return has(status, R"("frames":60,)") && !has(status, R"("dropped":0,)");
  })) << httpGet(port, "/status.json");
}

TEST_F(ViewerTest, TheStreamEndsWithItsCamera) {
  std::string live;
  std::thread browser([&] { live = httpGet(port, "/camera/1.mjpeg"); });
  ASSERT_TRUE(host.receiveRecord(CameraDataKind::Start, 1));
  host.send(removed(1, "unplugged"));
  browser.join();
  EXPECT_TRUE(has(live, "200 OK"));
  EXPECT_TRUE(httpGet(port, "/camera/1.mjpeg").starts_with("HTTP/1.1 404 "));
}

TEST_F(ViewerTest, ThereIsALimitOfConnectionsPerUser) {
  std::vector<RawPeer> crowd;
  for (int i = 0; i < 12; ++i) crowd.push_back(connectTo(port));
  EXPECT_TRUE(httpGet(port, "/").starts_with("HTTP/1.1 503 "));
  crowd.clear();
  EXPECT_TRUE(eventually([&] { return httpGet(port, "/").starts_with("HTTP/1.1 200 "); }));
}

TEST_F(ViewerTest, ATakenPortIsAFailureWithAdvice) {
  options.listen = "unix:" + (folder / "other.sock");
  options.view = port;
  EXPECT_TRUE(has(errorOf<base::Failure>([&] { const Program other(options); }),
                  "stop the program that uses it or choose another"));
}

}  // namespace
}  // namespace lumsar::test
