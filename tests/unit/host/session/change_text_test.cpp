// What a person reads of a device change.
#include "session/change_text.h"

#include <gtest/gtest.h>

namespace lumsar::test {
namespace {

std::string sentence(const char* data) {
  const auto [kind, details] = host::describeChange(data);
  return kind + details;
}

TEST(ChangeTextTest, IsASentence) {
  EXPECT_EQ(sentence(R"({"camera":"test:Front","change":"added","name":"Front","number":0,)"
                     R"("reason":"plugged in and shared with VM 'vm-7'","vmId":"vm-7"})"),
            "camera Front (test:Front): plugged in and shared with VM 'vm-7'");
  EXPECT_EQ(sentence(R"({"camera":"a","change":"removed","name":"A","reason":"unplugged"})"),
            "camera A (a): unplugged");
  EXPECT_EQ(sentence(R"({"camera":"Desk","change":"waiting","reason":"it is shared later"})"),
            "camera Desk: it is shared later");
  EXPECT_EQ(sentence(R"({"camera":"Desk","change":"refused","reason":"denied"})"),
            "refused: camera Desk: denied");
  EXPECT_EQ(sentence(R"({"camera":"a","change":"failed","name":"A","reason":"it does not work"})"),
            "failed: camera A (a): it does not work");
  EXPECT_EQ(sentence(R"({"camera":"a","change":"shared","name":"A","reason":"by another"})"),
            "camera A (a): by another");
  EXPECT_EQ(sentence(R"({"change":"unshared","reason":"by another"})"), "all cameras: by another");
  EXPECT_EQ(sentence(R"({"change":"policy","reason":"using 50"})"), "policy: using 50");
  EXPECT_EQ(sentence(R"({"change":"refused","reason":"too large"})"), "refused: too large");
}

TEST(ChangeTextTest, OfAnotherServiceIsShownAsItIs) {
  for (const char* data : {"", "text", "{}", R"({"change":"painted"})", R"({"camera":"a"})"}) {
    EXPECT_EQ(sentence(data), std::string("device change: ") + data);
  }
}

}  // namespace
}  // namespace lumsar::test
