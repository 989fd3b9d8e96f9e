#include "base/text/utf8.h"

#include <gtest/gtest.h>

namespace lumsar::test {
namespace {

using namespace base;

TEST(Utf8, MakesPeersTextsHarmless) {
  EXPECT_EQ(clean("a\nb\x1b[31m\x7f"), "a?b?[31m?");
  EXPECT_EQ(clean("Gr\xc3\xbc\xc3\x9f"), "Gr\xc3\xbc\xc3\x9f");
  EXPECT_EQ(clean("\xc3"), "?");
  EXPECT_EQ(clean("\xc0\xaf\xed\xa0\x80\xf4\x90\x80\x80"), "?????????");
  EXPECT_EQ(clean("\xc2\x9b"), "?");  // a control character beyond ASCII
  EXPECT_EQ(clean("\xf0\x9f\x93\xb7"), "\xf0\x9f\x93\xb7");
  EXPECT_EQ(clean(std::string(1000, 'x')).size(), 200U);
  EXPECT_EQ(clean("\xc3\xbc\xc3\xbc", 3), "\xc3\xbc");
  EXPECT_EQ(clean("a\nb\xff", 200, ' '), "a b?");
}

// Characters that reorder or break a line show a person other words than those that were sent.
TEST(Utf8, MakesBidirectionalControlsHarmless) {
  for (const char* control :
       {"\u061C", "\u200E", "\u200F", "\u2028", "\u2029", "\u202A", "\u202E", "\u2066", "\u2069"}) {
    EXPECT_EQ(clean(std::string("a") + control + "b"), "a?b");
  }
  for (const char* letter : {"\u061B", "\u200D", "\u2010", "\u2027", "\u202F", "\u206A"}) {
    EXPECT_EQ(clean(letter), letter);
  }
}

TEST(Utf8, MakesFileNamesThatNoProgramTakesForAnythingElse) {
  EXPECT_EQ(fileName("Front door (left)"), "Front-door-left");
  EXPECT_EQ(fileName("--rf"), "rf");
  EXPECT_EQ(fileName("../.\u202Egpj.exe"), "gpj-exe");
  EXPECT_EQ(fileName("a_b-c--"), "a_b-c");
  EXPECT_EQ(fileName("\u00FC"), "");
  EXPECT_EQ(fileName(std::string(100, 'x'), 60).size(), 60U);
}

TEST(Utf8, EscapesWhatIsNotValid) {
  EXPECT_EQ(escapeInvalid("caf\xe9.jpg"), "caf%E9.jpg");
  EXPECT_EQ(escapeInvalid("Gr\xc3\xbc\xc3"), "Gr\xc3\xbc%C3");
  EXPECT_EQ(escapeInvalid(""), "");
}

TEST(Utf8, CutsWhereACharacterBegins) {
  EXPECT_EQ(shortened("abc", 3), "abc");
  EXPECT_EQ(shortened("abcd", 3), "abc");
  EXPECT_EQ(shortened("ab\xc3\xbc", 3), "ab");
  EXPECT_EQ(shortened("\xf0\x9f\x93\xb7", 3), "");
}

TEST(Utf8, KnowsTheLengthOfASequence) {
  EXPECT_EQ(sequenceLength("\xe2\x82\xacx"), 3U);
  EXPECT_EQ(sequenceLength("\xe2\x82"), 0U);
  EXPECT_EQ(sequenceLength("\xe0\x80\x80"), 0U);
  EXPECT_EQ(sequenceLength(""), 0U);
}

}  // namespace
}  // namespace lumsar::test
