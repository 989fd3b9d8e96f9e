#include "base/text/table.h"

#include <gtest/gtest.h>

namespace lumsar::test {
namespace {

TEST(Table, AlignsColumnsByCharacters) {
  EXPECT_EQ(base::table({{"#", "NAME", "STATE"}, {"0", "T\xc3\xbcr", "on"}, {"10", "A", ""}}),
            "  #   NAME  STATE\n"
            "  0   T\xc3\xbcr   on\n"
            "  10  A\n");
  EXPECT_EQ(base::table({}), "");
}

TEST(Table, RowsMayBeShorter) {
  EXPECT_EQ(base::table({{"a"}, {"bb", "c"}}), "  a\n  bb  c\n");
}

}  // namespace
}  // namespace lumsar::test
