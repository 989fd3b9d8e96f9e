#include "protocol/jpeg_segments.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <vector>

namespace lumsar::test {
namespace {

using namespace protocol;

std::vector<unsigned char> jpegOf(std::initializer_list<unsigned char> segments) {
  std::vector<unsigned char> jpeg(2 + segments.size());
  jpeg[0] = 0xFF;
  jpeg[1] = jpeg::kBegin;
  std::copy(segments.begin(), segments.end(), jpeg.begin() + 2);
  return jpeg;
}

TEST(JpegSegments, AreReadOneAfterAnother) {
  const auto jpeg = jpegOf({0xFF, 0xDB, 0, 4, 1, 2, 0xFF, 0xDA, 0, 2, 7, 7, 7});
  JpegSegments segments(jpeg);

  const auto tables = segments.next();
  ASSERT_TRUE(tables);
  EXPECT_EQ(tables->marker, jpeg::kQuantisationTables);
  EXPECT_EQ(std::vector(tables->body.begin(), tables->body.end()),
            (std::vector<unsigned char>{1, 2}));
  const auto scan = segments.next();
  ASSERT_TRUE(scan);
  EXPECT_EQ(scan->marker, jpeg::kScan);
  EXPECT_TRUE(scan->body.empty());
  EXPECT_NE(scan->body.data(), nullptr);
  EXPECT_EQ(segments.position(), jpeg.size() - 3);
}

TEST(JpegSegments, MayHaveAnyNumberOfFillBytesInFront) {
  const auto jpeg = jpegOf({0xFF, 0xFF, 0xFF, 0xC4, 0, 3, 9});
  JpegSegments segments(jpeg);
  const auto segment = segments.next();
  ASSERT_TRUE(segment);
  EXPECT_EQ(segment->marker, jpeg::kHuffmanTables);
  ASSERT_EQ(segment->body.size(), 1U);
  EXPECT_EQ(segment->body[0], 9);
}

TEST(JpegSegments, EndWhereThereIsNoMarker) {
  for (const auto& jpeg :
       {jpegOf({}), jpegOf({0xFF}), jpegOf({0xFF, 0xFF}), jpegOf({0, 0xC4, 0, 2}),
        std::vector<unsigned char>{}, std::vector<unsigned char>{0xFF}}) {
    EXPECT_FALSE(JpegSegments(jpeg).next());
  }
}

TEST(JpegSegments, HaveNoBodyWhenTheyAreLongerThanTheJpeg) {
  for (const auto& jpeg :
       {jpegOf({0xFF, 0xC4}), jpegOf({0xFF, 0xC4, 0}), jpegOf({0xFF, 0xC4, 0, 3}),
        jpegOf({0xFF, 0xC4, 0, 1, 5, 5}), jpegOf({0xFF, 0xC4, 0xFF, 0xFF, 5, 5})}) {
    const auto segment = JpegSegments(jpeg).next();
    ASSERT_TRUE(segment);
    EXPECT_EQ(segment->body.data(), nullptr);
  }
}

}  // namespace
}  // namespace lumsar::test
