// distance: how unlike two texts are, and what that costs at most.
#include "base/text/distance.h"

#include <gtest/gtest.h>

#include <string>

namespace lumsar::test {
namespace {

TEST(DistanceTest, CountsWhatIsInsertedRemovedReplacedAndExchanged) {
  EXPECT_EQ(base::distance("Front", "Front"), 0U);
  EXPECT_EQ(base::distance("Fornt", "Front"), 1U);
  EXPECT_EQ(base::distance("Frnt", "Front"), 1U);
  EXPECT_EQ(base::distance("Back", "Front"), 5U);
}

TEST(DistanceTest, LongTextsAreNotCompared) {
  const std::string longText(101, 'x');
  EXPECT_EQ(base::distance(longText, longText), 100U);
  EXPECT_EQ(base::distance("x", longText), 100U);
  EXPECT_EQ(base::distance(longText.substr(1), longText.substr(1)), 0U);
}

}  // namespace
}  // namespace lumsar::test
