// Options from a file: the same words as on the command line, which comes after it.
#include <gtest/gtest.h>

#include "base/command_line.h"
#include "base/errors.h"
#include "support/temporary_directory.h"
#include "support/text.h"

namespace lumsar::test {
namespace {

using namespace base;

struct ConfigFileTest : testing::Test {
  // With a command line of these words.
  bool parse(std::vector<const char*> words = {}) {
    CommandLine line("program", "", "Does things.");
    line.option("--deny RULE", denied, "deny RULE");
    line.option("--limit N", limit, "at most N");
    line.option("--verbose", verbose, "log more");
    line.option("--status", status, "ask");
    line.configFile(file, {"--deny", "--limit", "--verbose"}, "--status", "read FILE");
    words.insert(words.begin(), "program");
    return line.parse(static_cast<int>(words.size()), words.data());
  }
  std::string refusal(const std::string& content) {
    writeFile(file, content);
    return errorOf<UsageError>([&] { parse(); });
  }

  const TemporaryDirectory directory;
  const std::string file = directory / "program.conf";
  std::vector<std::string> denied;
  std::uint16_t limit = 1;
  bool verbose = false;
  bool status = false;
};

TEST_F(ConfigFileTest, HoldsTheWordsOfTheCommandLine) {
  writeFile(file,
            "# What nobody gets\n\n  deny = Front door #2 \ndeny=a=b\r\nlimit = 7\nverbose\n");
  EXPECT_TRUE(parse());
  EXPECT_EQ(denied, (std::vector<std::string>{"Front door #2", "a=b"}));
  EXPECT_EQ(limit, 7);
  EXPECT_TRUE(verbose);
}

TEST_F(ConfigFileTest, TheCommandLineComesAfterIt) {
  writeFile(file, "limit = 7\ndeny = a");
  EXPECT_TRUE(parse({"--limit", "9", "--deny", "b"}));
  EXPECT_EQ(limit, 9);
  EXPECT_EQ(denied, (std::vector<std::string>{"a", "b"}));
}

TEST_F(ConfigFileTest, TheDefaultOneNeedNotBeThere) {
  EXPECT_TRUE(parse());
  EXPECT_EQ(errorOf<UsageError>([&] {
              parse({"--config", "/nowhere"});
            }),
            "--config: cannot read /nowhere: No such file or directory");
  EXPECT_TRUE(has(errorOf<UsageError>([&] { parse({"--config", "/"}); }), "/: Is a directory"));
}

TEST_F(ConfigFileTest, AnotherOneTakesThePlaceOfTheDefaultOne) {
  writeFile(file, "limit = 7");
  writeFile(directory / "other", "verbose");
  EXPECT_TRUE(parse({"--config", (directory / "other").c_str()}));
  EXPECT_EQ(limit, 1);
  EXPECT_TRUE(verbose);
}

TEST_F(ConfigFileTest, IsNotReadWhereItDoesNotMatter) {
  writeFile(file, "nonsense");
  EXPECT_TRUE(parse({"--status"}));
}

TEST_F(ConfigFileTest, ErrorsNameTheLineAndTheWord) {
  EXPECT_EQ(refusal("\nlimt = 7"),
            file + ":2: \"limt\" is not known; expected deny, limit or verbose");
  EXPECT_EQ(refusal("limit = much"),
            file + ":1: limit: \"much\" is not a valid number; expected 0 to 65535");
  EXPECT_EQ(refusal("deny"), file + ":1: deny needs a value");
  EXPECT_EQ(refusal("deny ="), file + ":1: deny needs a value");
  EXPECT_EQ(refusal("verbose = 1"), file + ":1: verbose takes no value");
  EXPECT_TRUE(has(refusal("status"), "\"status\" is not known"));
  EXPECT_TRUE(has(refusal("--deny = a"), "\"--deny\" is not known"));
  EXPECT_FALSE(has(refusal("\x1b[31m"), "\x1b"));
}

}  // namespace
}  // namespace lumsar::test
