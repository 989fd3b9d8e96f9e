#include "base/command_line.h"

#include <gtest/gtest.h>

#include "base/errors.h"
#include "base/version.h"
#include "support/text.h"

namespace lumsar::test {
namespace {

using namespace base;
using namespace std::chrono_literals;

enum class Protocol { Spice, Rdp };

struct Options {
  Protocol protocol = Protocol::Spice;
  std::string listen;
  std::string device;
  std::optional<std::string> xrdp;
  std::vector<std::string> videos;
  std::optional<std::uint16_t> view;
  std::optional<std::chrono::milliseconds> duration;
  std::chrono::milliseconds timeout{30s};
  std::vector<std::string> commands;
  std::uint8_t session = 1;
  bool json = false;
  std::string address;
};

CommandLine lineFor(Options& options, bool argument = true) {
  CommandLine line("program", "[OPTION...] ADDRESS", "Does this and that.");
  line.group("Where it comes from");
  line.option("--listen ADDRESS", options.listen, "listen there");
  line.option("--device PATH", options.device, "a character device");
  line.option("--xrdp[=LIBRARY]", options.xrdp, "the channel of the xrdp session that it runs in");
  line.option("--protocol spice|rdp",
              choice(options.protocol, {{"spice", Protocol::Spice}, {"rdp", Protocol::Rdp}}),
              "how the handshake begins");
  line.exclusive({"--listen", "--device", "--xrdp"});
  line.group("Options");
  line.option(
      "--v4l2 [DEVICE]",
      [&](const std::string& device) {
        options.videos.push_back(device.empty() ? "auto" : device);
      },
      "a loopback device");
  line.option(
      "--view [PORT]",
      [&](const std::string& port) { convert(port.empty() ? "8080" : port, options.view); },
      "a live page; this text is long enough to need a second line, which begins where the first "
      "one does, and nothing is cut");
  line.option("--duration TIME", options.duration, "end after this time");
  line.option("--timeout TIME", options.timeout, "how long to wait");
  line.option("--exec COMMAND", options.commands, "carry out COMMAND; repeatable");
  line.option("--session-with-long-name N", options.session, "its number");
  line.option("--json", options.json, "print one JSON object");
  line.section("Example", "  program --view 8080 unix:/x");
  if (argument) line.argument(options.address);
  return line;
}

bool parse(const CommandLine& line, std::vector<const char*> words) {
  words.insert(words.begin(), "program");
  return line.parse(static_cast<int>(words.size()), words.data());
}

Options parse(const std::vector<const char*>& words) {
  Options options;
  EXPECT_TRUE(parse(lineFor(options), words));
  return options;
}

std::string refusal(const std::vector<const char*>& words, bool argument = true) {
  Options options;
  return errorOf<UsageError>([&] { parse(lineFor(options, argument), words); });
}

TEST(CommandLine, TakesValuesOfAllKinds) {
  const Options options = parse({"--protocol", "rdp", "--listen=unix:/s", "--duration", "250ms",
                                 "--timeout=1.5s", "--exec", "list", "--exec", "share 0",
                                 "--session-with-long-name", "7", "--json", "unix:/x"});
  EXPECT_EQ(options.protocol, Protocol::Rdp);
  EXPECT_EQ(options.listen, "unix:/s");
  EXPECT_EQ(options.duration, 250ms);
  EXPECT_EQ(options.timeout, 1500ms);
  EXPECT_EQ(options.commands, (std::vector<std::string>{"list", "share 0"}));
  EXPECT_EQ(options.session, 7);
  EXPECT_TRUE(options.json);
  EXPECT_EQ(options.address, "unix:/x");
}

TEST(CommandLine, LeavesDefaultsAlone) {
  const Options options = parse({});
  EXPECT_EQ(options.timeout, 30s);
  EXPECT_EQ(options.session, 1);
  EXPECT_FALSE(options.duration || options.view || options.xrdp || options.json);
  EXPECT_EQ(options.address, "");
}

TEST(CommandLine, OptionalValuesAreTheNextWordOrAfterEquals) {
  EXPECT_EQ(parse({"--view"}).view, 8080);
  EXPECT_EQ(parse({"--view", "9000"}).view, 9000);
  EXPECT_EQ(parse({"--view=9000"}).view, 9000);
  EXPECT_EQ(parse({"--view", "--json"}).view, 8080);
  EXPECT_TRUE(parse({"--view", "--json"}).json);
  EXPECT_EQ(parse({"--v4l2", "--v4l2", "/dev/video3", "--v4l2=/dev/video4", "--v4l2"}).videos,
            (std::vector<std::string>{"auto", "/dev/video3", "/dev/video4", "auto"}));
}

TEST(CommandLine, AValueThatMayOnlyFollowEqualsLeavesTheNextWordAlone) {
  EXPECT_EQ(parse({"--xrdp"}).xrdp, "");
  EXPECT_EQ(parse({"--xrdp=/lib/x.so"}).xrdp, "/lib/x.so");
  const Options options = parse({"--xrdp", "unix:/x"});
  EXPECT_EQ(options.xrdp, "");
  EXPECT_EQ(options.address, "unix:/x");
}

TEST(CommandLine, LeavesValuesAsTheyAre) {
  EXPECT_EQ(parse({"[::1]"}).address, "[::1]");
  EXPECT_EQ(parse({"--listen", "[a,b]"}).listen, "[a,b]");
  EXPECT_EQ(parse({"--listen", "-5"}).listen, "-5");
  EXPECT_EQ(parse({"--listen", "--json"}).listen, "--json");
  EXPECT_EQ(parse({"--listen=a=b"}).listen, "a=b");
  EXPECT_EQ(parse({"--listen", "{}"}).listen, "{}");
  EXPECT_EQ(parse({"--listen", "'quoted'"}).listen, "'quoted'");
  EXPECT_EQ(parse({"--", "--json"}).address, "--json");
}

TEST(CommandLine, TheLastOfSeveralCounts) {
  EXPECT_EQ(parse({"--listen", "a", "--listen=b"}).listen, "b");
  EXPECT_TRUE(parse({"--json", "--json"}).json);
}

TEST(CommandLine, SaysWhatIsWrong) {
  EXPECT_EQ(refusal({"--nonsense=1", "x"}), "unknown option --nonsense");
  EXPECT_EQ(refusal({"-x"}), "unknown option -x");
  EXPECT_EQ(refusal({"--jso"}), "unknown option --jso");
  EXPECT_EQ(refusal({"--listen"}), "--listen needs a value");
  EXPECT_EQ(refusal({"--listen=", "--json"}), "--listen needs a value");
  EXPECT_EQ(refusal({"--listen", ""}), "--listen needs a value");
  EXPECT_EQ(refusal({"--json=x"}), "--json takes no value");
  EXPECT_EQ(refusal({"a", "b"}), "unexpected argument \"b\"");
  EXPECT_EQ(refusal({"a", "--", "--json"}), "unexpected argument \"--json\"");
  EXPECT_EQ(refusal({"a"}, false), "unexpected argument \"a\"");
  EXPECT_EQ(refusal({"--protocol", "vnc"}),
            "--protocol: \"vnc\" is not valid; expected spice or rdp");
  EXPECT_EQ(refusal({"--view", "99999"}),
            "--view: \"99999\" is not a valid number; expected 0 to 65535");
  EXPECT_EQ(refusal({"--session-with-long-name=-1"}),
            "--session-with-long-name: \"-1\" is not a valid number; expected 0 to 255");
  EXPECT_EQ(refusal({"--duration", "soon"}).substr(0, 49),
            "--duration: \"soon\" is not a valid duration; expec");
  EXPECT_EQ(refusal({"--listen", "a", "--xrdp"}),
            "only one of --listen, --device and --xrdp is possible");
}

TEST(CommandLine, HelpAndVersionEndWellAtOnceWhateverElseIsWrong) {
  Options options;
  const CommandLine line = lineFor(options);
  testing::internal::CaptureStdout();
  EXPECT_FALSE(parse(line, {"--view", "99999", "--nonsense", "-h"}));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), line.help());
  testing::internal::CaptureStdout();
  EXPECT_FALSE(parse(line, {"--version"}));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), std::string("program ") + kVersion + "\n");
}

TEST(CommandLine, HelpIsLaidOutInColumns) {
  Options options;
  EXPECT_EQ(lineFor(options).help(), R"(Usage: program [OPTION...] ADDRESS

Does this and that.

Where it comes from:
  --listen ADDRESS       listen there
  --device PATH          a character device
  --xrdp[=LIBRARY]       the channel of the xrdp session that it runs in
  --protocol spice|rdp   how the handshake begins

Options:
  --v4l2 [DEVICE]        a loopback device
  --view [PORT]          a live page; this text is long enough to need a second line, which begins
                         where the first one does, and nothing is cut
  --duration TIME        end after this time
  --timeout TIME         how long to wait
  --exec COMMAND         carry out COMMAND; repeatable
  --session-with-long-name N
                         its number
  --json                 print one JSON object

  -h, --help             show this help
  --version              show the version

Example:
  program --view 8080 unix:/x
)");
}

TEST(RunProgram, TurnsErrorsIntoExitStatuses) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(runProgram("program", [] { return 7; }), 7);
  EXPECT_EQ(runProgram("program", []() -> int { throw UsageError("--x needs a value"); }), 2);
  EXPECT_EQ(runProgram("program", []() -> int { throw Failure("cannot listen"); }), 1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "program: --x needs a value. See program --help.\nprogram: error: cannot listen\n");
}

}  // namespace
}  // namespace lumsar::test
