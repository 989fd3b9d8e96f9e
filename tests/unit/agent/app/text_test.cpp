// The small things: JSON, the command line, HTTP requests.
#include <gtest/gtest.h>

#include "app/agent_options.h"
#include "app/json.h"
#include "base/errors.h"
#include "outputs/web/http_request.h"
#include "support/text.h"

namespace lumsar::test {
namespace {

using namespace agent;

TEST(Json, WritesNestedTexts) {
  JsonWriter json;
  json.beginObject().text("a", "q\"b\\\n\x01").number("n", -5).boolean("t", true);
  json.beginArray("list").beginObject().endObject().beginObject().real("r", 1.255, 2).endObject();
  json.endArray().beginArray("empty").endArray().endObject();
  EXPECT_EQ(json.result(), R"({"a":"q\"b\\??","n":-5,"t":true,"list":[{},{"r":1.25}],"empty":[]})");
}

TEST(Json, HoldsNothingThatATerminalObeys) {
  JsonWriter json;
  json.beginObject().text("a", "\x1b[2J\x7f\u009b\u202E\xff\u00fc").endObject();
  EXPECT_EQ(json.result(), "{\"a\":\"?[2J????\u00fc\"}");
}

TEST(Json, MayStandInAScript) {
  JsonWriter json;
  json.beginObject().text("a", "</script>").endObject();
  EXPECT_EQ(json.result(), R"({"a":"\u003c/script>"})");
}

Options parse(std::vector<std::string> words) {
  words.insert(words.begin(), "lumsar-agent");
  std::vector<char*> argv;
  for (auto& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  return parseOptions(static_cast<int>(words.size()), argv.data()).value();
}

TEST(Options, HaveSensibleDefaults) {
  const Options options = parse({});
  EXPECT_EQ(options.port, "org.lumsar.camera.0");
  EXPECT_EQ(options.endpoint.protocol, Protocol::Spice);
  EXPECT_EQ(options.endpoint.session, 1);
  EXPECT_FALSE(options.endpoint.shareAll);
  EXPECT_FALSE(options.view);
  EXPECT_TRUE(parse({"--listen-direct", "tcp:1"}).port.empty());
}

TEST(Options, AreRead) {
  const Options options = parse({"--protocol",  "rdp",         "--listen=unix:/s",
                                 "--view",      "9000",        "--v4l2",
                                 "--v4l2",      "/dev/video3", "--duration",
                                 "250ms",       "--pipewire",  "--vm-version",
                                 "1.0",         "--session",   "7",
                                 "--share-all", "--json",      "--status-file",
                                 "f",           "--save",      "d"});
  EXPECT_EQ(options.endpoint.protocol, Protocol::Rdp);
  EXPECT_EQ(options.listen, "unix:/s");
  EXPECT_TRUE(options.pipewire);
  EXPECT_EQ(options.view, 9000);
  EXPECT_EQ(options.videoDevices, (std::vector<std::string>{"auto", "/dev/video3"}));
  EXPECT_EQ(options.runFor, std::chrono::milliseconds(250));
  EXPECT_EQ(options.endpoint.vmMinor, 0);
  EXPECT_EQ(options.endpoint.session, 7);
  EXPECT_TRUE(options.endpoint.shareAll && options.json);
  EXPECT_EQ(parse({"--view"}).view, 8080);
  EXPECT_EQ(parse({"--view", "--json"}).view, 8080);
  EXPECT_EQ(parse({"--duration", "2m"}).runFor, std::chrono::minutes(2));
}

TEST(Options, AreRefusedWithAReason) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
      {{"--protocol", "vnc"}, "expected spice or rdp"},
      {{"--nonsense"}, "unknown option --nonsense"},
      {{"--listen"}, "--listen needs a value"},
      {{"extra"}, "unexpected argument \"extra\""},
      {{"--duration", "soon"}, "such as 10s"},
      {{"--duration", "5x"}, "such as 10s"},
      {{"--view", "99999"}, "expected 0 to 65535"},
      {{"--session", "-1"}, "expected 0 to 65535"},
      {{"--vm-version", "1"}, "such as 1.1"},
      {{"--vm-version", "1.256"}, "such as 1.1"},
      {{"--listen", "a", "--device", "b"}, "only one of"},
  };
  for (const auto& [words, reason] : cases) {
    const std::string error = errorOf<base::UsageError>([&words = words] { parse(words); });
    EXPECT_TRUE(has(error, reason)) << error << ", not " << reason;
  }
}

TEST(Options, AreAllInTheHelp) {
  for (const char* option :
       {"--port",       "--device",     "--listen",      "--protocol",   "--listen-direct",
        "--v4l2",       "--view",       "--save ",       "--save-mjpeg", "--discard",
        "--duration",   "--json",       "--status-file", "--share-all",  "--session",
        "--vm-version", "--verbose",    "--version",     "--help",       "--wrong-token",
        "--xrdp",       "--token-file", "--pipewire"}) {
    EXPECT_NE(helpText().find(option), std::string::npos) << option;
  }
}

TEST(HttpRequest, IsParsed) {
  const auto request =
      parseRequest("GET /camera/1.jpg?x=1 HTTP/1.1\r\nHOST:  localhost:80 \r\n\r\n");
  ASSERT_TRUE(request);
  EXPECT_EQ(request->method, "GET");
  EXPECT_EQ(request->path, "/camera/1.jpg");
  EXPECT_EQ(request->query, "x=1");
  EXPECT_EQ(request->headers.find("host")->second, "localhost:80");
  for (const char* bad : {"", "\r\n\r\n", "GET\r\n\r\n", "GET /\r\n\r\n", "GET x HTTP/1.1\r\n\r\n",
                          "GET / SIP/2.0\r\n\r\n", "GET / HTTP/1.1\r\nHost : x\r\n\r\n",
                          "GET / HTTP/1.1\r\nHost: x\r\n y: z\r\n\r\n"}) {
    EXPECT_FALSE(parseRequest(bad)) << bad;
  }
}

bool fromHere(const std::string& headers) {
  return isFromHere(*parseRequest("GET / HTTP/1.1\r\n" + headers + "\r\n"));
}

TEST(HttpRequest, OnlyThePageItselfAndPeopleMayAsk) {
  EXPECT_TRUE(fromHere("Host: 127.0.0.1:8080\r\n"));
  EXPECT_TRUE(fromHere("Host: localhost\r\nSec-Fetch-Site: same-origin\r\n"));
  EXPECT_TRUE(fromHere("Host: [::1]:80\r\nSec-Fetch-Site: none\r\n"));
  EXPECT_TRUE(fromHere("Host: localhost:8080\r\nOrigin: http://localhost:8080\r\n"));
  for (const char* headers :
       {"", "Host:\r\n", "Host: evil.example:8080\r\n", "Host: 127.0.0.1.evil.example\r\n",
        "Host: 127.0.0.1\r\nHost: 127.0.0.1\r\n", "Host: 127.0.0.1:80:80\r\n",
        "Host: 127.0.0.1:x\r\n", "Host: 127.0.0.1:\r\n", "Host: ::1\r\n", "Host: [::1]x\r\n",
        "Host: [localhost]\r\n", "Host: a@localhost\r\n",
        "Host: localhost\r\nOrigin: http://evil.example\r\n", "Host: localhost\r\nOrigin: null\r\n",
        "Host: localhost:8080\r\nOrigin: http://localhost:8081\r\n",
        "Host: localhost\r\nSec-Fetch-Site: none\r\nSec-Fetch-Site: cross-site\r\n"}) {
    EXPECT_FALSE(fromHere(headers)) << headers;
  }
  EXPECT_FALSE(fromHere("Host: 127.0.0.1\r\nSec-Fetch-Site: cross-site\r\n"));
}

}  // namespace
}  // namespace lumsar::test
