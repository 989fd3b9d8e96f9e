// Deframer: what it holds after a large message.
#include "session/deframer.h"

#include <gtest/gtest.h>

#include "support/messages.h"

namespace lumsar::test {
namespace {

TEST(DeframerTest, GivesBackWhatALargeMessageNeeded) {
  host::Deframer deframer;
  deframer.append(message(MSG_HELLO));
  deframer.append(message(MSG_DATA, Bytes(60U << 20U)));
  EXPECT_EQ(deframer.next().size(), kHeaderSize);
  EXPECT_EQ(deframer.next().size(), kHeaderSize + (60U << 20U));
  EXPECT_TRUE(deframer.next().empty());
  EXPECT_LT(deframer.capacity(), 5U << 20U);
}

}  // namespace
}  // namespace lumsar::test
