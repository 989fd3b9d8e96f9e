#include "base/text/format.h"

#include <gtest/gtest.h>

#include "base/system/event_fd.h"
#include "base/text/bytes.h"

namespace lumsar::test {
namespace {

using namespace base;

TEST(Format, BuildsTexts) {
  const std::string name = "Front door";
  EXPECT_EQ(text("camera \"{}\": {} of {:.1f}", name, 3, 2.25), "camera \"Front door\": 3 of 2.2");
  EXPECT_EQ(text("{:04x} {} {}", 0xABU, true, "text"), "00ab true text");
}

TEST(Format, KnowsSystemErrors) {
  EXPECT_EQ(systemError(ENOENT), "No such file or directory");
  errno = EACCES;
  EXPECT_EQ(systemError(), "Permission denied");
}

TEST(Bytes, OfATextAndOfAStruct) {
  const std::uint16_t number = 0x0201;
  EXPECT_EQ(bytesOf(number)[0], 1);
  EXPECT_EQ(bytesOf(number).size(), 2U);
  EXPECT_EQ(bytesOf("abc").size(), 3U);
  EXPECT_EQ(bytesOf(std::string("abc"))[2], 'c');
}

TEST(UniqueFd, ClosesWhatItOwns) {
  const int raw = dup(STDERR_FILENO);
  {
    UniqueFd first(raw);
    UniqueFd second(std::move(first));
    EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(second.get(), raw);
  }
  EXPECT_LT(dup(raw), 0);
}

TEST(EventFd, IsReadableUntilItIsCleared) {
  const EventFd event;
  const auto readable = [&] {
    eventfd_t count = 0;
    return eventfd_read(event.get(), &count) == 0;
  };
  EXPECT_FALSE(readable());
  event.wake();
  event.wake();
  EXPECT_TRUE(readable());
  event.wake();
  event.clear();
  EXPECT_FALSE(readable());
}

}  // namespace
}  // namespace lumsar::test
