// The small things: JSON, counters, addresses, the command line, HTTP requests.
#include <gtest/gtest.h>

#include "app/agent_options.h"
#include "outputs/web/http_request.h"
#include "outputs/web/json.h"
#include "session/counters.h"
#include "transport/address.h"

namespace lumsar::agent::test {
namespace {

TEST(Json, WritesNestedTexts) {
  JsonWriter json;
  json.beginObject().text("a", "q\"b\\\n\x01").number("n", -5).boolean("t", true);
  json.beginArray("list").beginObject().endObject().beginObject().real("r", 1.255, 2).endObject();
  json.endArray().beginArray("empty").endArray().endObject();
  EXPECT_EQ(json.result(),
            R"({"a":"q\"b\\\u000a\u0001","n":-5,"t":true,"list":[{},{"r":1.25}],"empty":[]})");
}

TEST(Json, MayStandInAScript) {
  JsonWriter json;
  json.beginObject().text("a", "</script>").endObject();
  EXPECT_EQ(json.result(), R"({"a":"\u003c/script>"})");
}

TEST(Latencies, KnowMedianAndWorst) {
  Latencies latencies;
  EXPECT_EQ(latencies.median(), 0U);
  for (const std::uint64_t value : {5U, 100U, 7U}) latencies.add(value);
  EXPECT_EQ(latencies.median(), 7U);
  EXPECT_EQ(latencies.worst(), 100U);
  for (int i = 0; i < 100000; ++i) latencies.add(50);
  EXPECT_EQ(latencies.median(), 50U);
  EXPECT_EQ(latencies.worst(), 100U);
}

std::string refusal(const std::string& address) {
  try {
    Address::parse(address);
  } catch (const Failure& failure) {
    return failure.what();
  }
  return {};
}

TEST(Address, ListensOnLoopbackUnlessToldOtherwise) {
  EXPECT_TRUE(localAddress(Address::parse("tcp:0").listen().get()).starts_with("tcp:127.0.0.1:"));
  EXPECT_TRUE(
      localAddress(Address::parse("tcp:0.0.0.0:0").listen().get()).starts_with("tcp:0.0.0.0:"));
  EXPECT_EQ(Address::parse("unix:/a/b").path(), "/a/b");
}

TEST(Address, RefusesWithAReason) {
  for (const char* bad :
       {"", "tcp:", "tcp:x", "tcp:70000", "tcp:host:1", "udp:1", "unix:", "/path"}) {
    EXPECT_NE(refusal(bad).find("is no address; expected unix:PATH"), std::string::npos) << bad;
  }
  EXPECT_NE(refusal("unix:" + std::string(108, 'x')).find("too long"), std::string::npos);
}

TEST(Address, ATakenPortIsSaidToBeTaken) {
  const base::UniqueFd first = Address::parse("tcp:0").listen();
  try {
    Address::parse(localAddress(first.get())).listen();
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_NE(std::string(failure.what()).find("already in use; stop the program"),
              std::string::npos)
        << failure.what();
  }
}

Options parse(std::vector<std::string> words) {
  words.insert(words.begin(), "lumsar-agent");
  std::vector<char*> argv;
  for (auto& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  return parseOptions(static_cast<int>(words.size()), argv.data());
}

TEST(Options, HaveSensibleDefaults) {
  const Options options = parse({});
  EXPECT_EQ(options.port, "org.lumsar.camera.0");
  EXPECT_EQ(options.link.kind, LinkKind::Spice);
  EXPECT_EQ(options.link.session, 1);
  EXPECT_FALSE(options.link.shareAll);
  EXPECT_FALSE(options.view);
  EXPECT_TRUE(parse({"--direct", "tcp:1"}).port.empty());
}

TEST(Options, AreRead) {
  const Options options = parse({"--kind",        "rdp",    "--listen=unix:/s", "--view",
                                 "9000",          "--v4l2", "--v4l2",           "/dev/video3",
                                 "--for",         "250ms",  "--vm-version",     "1.0",
                                 "--session",     "7",      "--share-all",      "--json",
                                 "--status-file", "f",      "--save",           "d"});
  EXPECT_EQ(options.link.kind, LinkKind::Rdp);
  EXPECT_EQ(options.listen, "unix:/s");
  EXPECT_EQ(options.view, 9000);
  EXPECT_EQ(options.videoDevices, (std::vector<std::string>{"auto", "/dev/video3"}));
  EXPECT_EQ(options.runFor, std::chrono::milliseconds(250));
  EXPECT_EQ(options.link.vmMinor, 0);
  EXPECT_EQ(options.link.session, 7);
  EXPECT_TRUE(options.link.shareAll && options.json);
  EXPECT_EQ(parse({"--view"}).view, 8080);
  EXPECT_EQ(parse({"--view", "--json"}).view, 8080);
  EXPECT_EQ(parse({"--for", "2m"}).runFor, std::chrono::minutes(2));
}

TEST(Options, AreRefusedWithAReason) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
      {{"--kind", "vnc"}, "expected spice or rdp"},
      {{"--nonsense"}, "unknown option --nonsense"},
      {{"--listen"}, "--listen needs a value"},
      {{"extra"}, "unexpected argument \"extra\""},
      {{"--for", "soon"}, "such as 10s"},
      {{"--for", "5x"}, "such as 10s"},
      {{"--view", "99999"}, "expected 0 to 65535"},
      {{"--session", "-1"}, "expected 0 to 65535"},
      {{"--vm-version", "1"}, "such as 1.1"},
      {{"--vm-version", "1.256"}, "such as 1.1"},
      {{"--listen", "a", "--device", "b"}, "only one of"},
  };
  for (const auto& [words, reason] : cases) {
    try {
      parse(words);
      ADD_FAILURE() << reason;
    } catch (const UsageError& error) {
      EXPECT_NE(std::string(error.what()).find(reason), std::string::npos) << error.what();
    }
  }
}

TEST(Options, AreAllInTheHelp) {
  for (const char* option :
       {"--port",       "--device",  "--listen",      "--kind",       "--direct",
        "--v4l2",       "--view",    "--save ",       "--save-mjpeg", "--discard",
        "--for",        "--json",    "--status-file", "--share-all",  "--session",
        "--vm-version", "--verbose", "--version",     "--help",       "--wrong-token"}) {
    EXPECT_NE(helpText().find(option), std::string::npos) << option;
  }
}

TEST(HttpRequest, IsParsed) {
  const auto request =
      parseRequest("GET /camera/1.jpg?x=1 HTTP/1.1\r\nHOST:  localhost:80 \r\nbad line\r\n\r\n");
  ASSERT_TRUE(request);
  EXPECT_EQ(request->method, "GET");
  EXPECT_EQ(request->path, "/camera/1.jpg");
  EXPECT_EQ(request->headers.at("host"), "localhost:80");
  for (const char* bad : {"", "\r\n\r\n", "GET\r\n\r\n", "GET /\r\n\r\n", "GET x HTTP/1.1\r\n\r\n",
                          "GET / SIP/2.0\r\n\r\n"}) {
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
  EXPECT_TRUE(fromHere(""));
  EXPECT_FALSE(fromHere("Host: evil.example:8080\r\n"));
  EXPECT_FALSE(fromHere("Host: 127.0.0.1\r\nSec-Fetch-Site: cross-site\r\n"));
}

}  // namespace
}  // namespace lumsar::agent::test
