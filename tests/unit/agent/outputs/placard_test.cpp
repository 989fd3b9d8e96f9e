// Placards: that they are frames of their size, and that their words can be read.
#include "outputs/placard.h"

#include <gtest/gtest.h>

#include <string>

#include "protocol/jpeg_segments.h"
#include "support/messages.h"

namespace lumsar::test {
namespace {

using namespace agent;

constexpr FrameSize kSize = {640, 480};

// One character for each block of eight by eight pixels, without the empty edges.
std::vector<std::string> picture(const Bytes& frame, std::uint32_t encoding, FrameSize size) {
  const std::size_t stride = rawStride(encoding, size);
  const std::size_t step = encoding == kRawYuy2 ? 2 : 1;
  std::vector<std::string> rows;
  for (std::size_t y = 4; y < size.height; y += 8) {
    std::string row;
    for (std::size_t x = 4; x < size.width; x += 8) {
      row += frame[y * stride + x * step] > 200 ? '#' : ' ';
    }
    if (row.find('#') != std::string::npos) rows.push_back(row);
  }
  std::size_t left = size.width;
  for (const auto& row : rows) left = std::min(left, row.find('#'));
  for (auto& row : rows) row = row.substr(left, row.find_last_of('#') + 1 - left);
  return rows;
}

TEST(Placard, SaysItsWordsInTheMiddle) {
  const std::vector<std::string> expected = {
      "            #   #  ###",          "            ##  # #   #",
      "            # # # #   #",         "            #  ## #   #",
      "            #   # #   #",         "            #   # #   #",
      "            #   #  ###",          " ####  ###   #### #   #  ###  #",
      "#       #   #     ##  # #   # #", "#       #   #     # # # #   # #",
      " ###    #   #  ## #  ## ##### #", "    #   #   #   # #   # #   # #",
      "    #   #   #   # #   # #   # #", "####   ###   #### #   # #   # #####"};
  for (const std::uint32_t encoding : {kRawI420, kRawYuy2, kRawNv12}) {
    const Bytes frame = placard(Notice::NoSignal, encoding, {320, 240});
    ASSERT_EQ(frame.size(), rawBytes(encoding, {320, 240}));
    EXPECT_EQ(picture(frame, encoding, {320, 240}), expected);
    EXPECT_EQ(frame.back(), 128);  // a colour, or brightness of the edge
  }
}

TEST(Placard, IsGreyWhereThereIsNoRoomForWords) {
  for (const FrameSize size : {FrameSize{16, 16}, {17, 9}, {1, 1}, {287, 400}, {400, 143}}) {
    const Bytes frame = placard(Notice::CameraStarts, kRawI420, size);
    EXPECT_EQ(frame, Bytes(rawBytes(kRawI420, size), 128));
  }
}

TEST(Placard, OfJpegIsACompleteOne) {
  for (const FrameSize size : {kSize, {1, 1}, {321, 243}, {1920, 1080}}) {
    const Bytes jpeg = placard(Notice::CameraStarts, kEncodingMjpg, size);
    EXPECT_TRUE(protocol::isCompleteJpeg(jpeg));
    EXPECT_LT(jpeg.size(), 40000U);
  }
}

TEST(Placard, IsThereForWhatCanBeMadeWithoutACodec) {
  EXPECT_TRUE(hasPlacard(kEncodingMjpg, kSize));
  EXPECT_TRUE(hasPlacard(kRawNv12, kSize));
  EXPECT_FALSE(hasPlacard(kEncodingH264, kSize));
  EXPECT_FALSE(hasPlacard(kEncodingMjpg, {65535, 65535}));
  EXPECT_FALSE(hasPlacard(kEncodingMjpg, {0, 480}));
}

}  // namespace
}  // namespace lumsar::test
