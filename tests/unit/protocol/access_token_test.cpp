#include "protocol/access_token.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "base/errors.h"
#include "support/messages.h"
#include "support/temporary_directory.h"
#include "support/text.h"

namespace lumsar::test {
namespace {

using namespace protocol;
using Result = AccessCheck::Result;

class AccessToken : public testing::Test {
 protected:
  std::string lineFrom(const std::string& content, mode_t mode = 0600) const {
    writeFile(folder / "token", content);
    chmod((folder / "token").c_str(), mode);
    return readAccessLine(folder / "token");
  }
  std::string refusal(const std::string& content, mode_t mode = 0600) const {
    return errorOf<base::Failure>([&] { lineFrom(content, mode); });
  }

  const TemporaryDirectory folder;
};

TEST_F(AccessToken, ComesFromAFileThatIsTheUsersAlone) {
  EXPECT_EQ(readAccessLine(""), "");
  EXPECT_EQ(lineFrom("0123456789abcdef\n"), "LUMSAR-ACCESS 0123456789abcdef\n");
  EXPECT_TRUE(has(refusal("0123456789abcdef", 0644), "other users have access to it"));
  EXPECT_TRUE(has(refusal("short"), "16 to 256 visible characters"));
  EXPECT_TRUE(has(refusal("two words that are long\nand a line"), "visible characters"));
  EXPECT_TRUE(has(refusal(std::string(300, 'x')), "16 to 256"));
  EXPECT_TRUE(
      has(errorOf<base::Failure>([&] { readAccessLine(folder / "none"); }), "No such file"));
}

TEST_F(AccessToken, IsFoundHoweverTheBytesAreCut) {
  const std::string line = lineFrom("0123456789abcdef");
  const Bytes all = join({bytesOf(line), bytesOf("MACV")});
  for (std::size_t cut = 0; cut <= all.size(); ++cut) {
    AccessCheck check(line);
    View first = View(all).first(cut);
    View second = View(all).subspan(cut);
    const Result result = check.take(first);
    if (cut < line.size()) {
      EXPECT_EQ(result, Result::Incomplete);
      EXPECT_EQ(check.take(second), Result::Granted);
      EXPECT_EQ(textOf(second), "MACV");
    } else {
      EXPECT_EQ(result, Result::Granted);
      EXPECT_EQ(textOf(first), std::string("MACV").substr(0, cut - line.size()));
    }
  }
}

TEST_F(AccessToken, OfAnotherKindIsRefused) {
  const std::string line = lineFrom("0123456789abcdef");
  const Bytes greeting = hello(1);
  View message = greeting;
  EXPECT_EQ(AccessCheck(line).take(message), Result::Refused);
  const Bytes other = bytesOf("LUMSAR-ACCESS 0123456789abcdeX\n");
  View wrong = other;
  EXPECT_EQ(AccessCheck(line).take(wrong), Result::Refused);
  View anything = greeting;
  EXPECT_EQ(AccessCheck().take(anything), Result::Granted);
  EXPECT_EQ(anything.size(), greeting.size());
}

}  // namespace
}  // namespace lumsar::test
