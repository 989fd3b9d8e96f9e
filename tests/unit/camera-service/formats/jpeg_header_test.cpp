// Tests of jpeg_header.h, with frames of a real encoder and with such as no encoder makes.
#include "formats/jpeg_header.h"

#include <gtest/gtest.h>

#include "support/messages.h"
#include "unit/camera-service/media.h"

namespace lumsar::test {
namespace {

using service::JpegHeader;
using service::readJpegHeader;
using State = JpegHeader::State;

constexpr unsigned char kTables = 0xDB;
constexpr unsigned char kHuffman = 0xC4;

struct Segment {
  std::size_t begin;
  std::size_t size;
};

// The first segment with this marker, with the marker.
Segment segment(const Bytes& jpeg, unsigned char marker) {
  for (std::size_t at = 2; at + 4 < jpeg.size();) {
    const std::size_t size = 2 + static_cast<std::size_t>(jpeg[at + 2] << 8 | jpeg[at + 3]);
    if (jpeg[at + 1] == marker) return {at, size};
    at += size;
  }
  ADD_FAILURE() << "no such segment";
  return {};
}

// One segment of quantisation tables with this body instead of those of `jpeg`.
Bytes withTables(const Bytes& jpeg, const Bytes& body) {
  Bytes result = withoutSegments(jpeg, kTables);
  const std::size_t length = body.size() + 2;
  const Bytes head = {0xFF, kTables, static_cast<unsigned char>(length >> 8U),
                      static_cast<unsigned char>(length)};
  const Bytes all = join({head, body});
  result.insert(result.begin() + 2, all.begin(), all.end());
  return result;
}

// Tables 0 and 1, all of one value.
Bytes flatTables(unsigned char value) {
  Bytes body(130, value);
  body[0] = 0;
  body[65] = 1;
  return body;
}

class JpegHeaderTest : public ::testing::Test {
 protected:
  void expectDamaged(const Bytes& frame, const std::string& fault) {
    const JpegHeader header = readJpegHeader(frame);
    EXPECT_EQ(header.state, State::Damaged) << fault;
    EXPECT_EQ(header.fault, fault);
  }
  const Bytes jpeg = makeJpeg(320, 240, 85);
};

TEST_F(JpegHeaderTest, SizeAndQualityOfAnEncodersFrames) {
  for (const int quality : {1, 5, 10, 25, 50, 75, 85, 95, 100}) {
    const Bytes frame = makeJpeg(160, 120, quality);
    const JpegHeader header = readJpegHeader(frame);
    EXPECT_EQ(header.state, State::Plain) << header.fault;
    EXPECT_EQ(header.width, 160);
    EXPECT_EQ(header.height, 120);
    EXPECT_EQ(header.quality, quality);
    EXPECT_EQ(header.size, frame.size());
  }
}

TEST_F(JpegHeaderTest, PaddingBehindTheEndIsNotPartOfTheFrame) {
  for (const int filling : {0x00, 0xFF}) {
    Bytes padded = jpeg;
    padded.resize(padded.size() + 1000, static_cast<unsigned char>(filling));
    EXPECT_EQ(readJpegHeader(padded).state, State::Plain);
    EXPECT_EQ(readJpegHeader(padded).size, jpeg.size());
  }
}

TEST_F(JpegHeaderTest, AFrameThatIsCutOffAnywhereIsDamaged) {
  for (std::size_t size = 0; size < jpeg.size(); ++size) {
    const JpegHeader header = readJpegHeader(View(jpeg).first(size));
    ASSERT_EQ(header.state, State::Damaged) << size << " of " << jpeg.size() << " bytes";
    ASSERT_STRNE(header.fault, "");
  }
}

TEST_F(JpegHeaderTest, WithoutItsBeginningOrItsTables) {
  expectDamaged({jpeg.begin() + 2, jpeg.end()}, "does not begin as a JPEG");
  expectDamaged({jpeg.begin(), jpeg.end() - 2}, "is cut off");
  expectDamaged(withoutSegments(jpeg, kTables), "lacks quantisation tables");
  expectDamaged(withoutSegments(jpeg, 0xC0), "has no frame header");
  expectDamaged(Bytes(1000, 0), "does not begin as a JPEG");
}

TEST_F(JpegHeaderTest, TablesThatLie) {
  expectDamaged(withTables(jpeg, flatTables(0)), "has a quantisation table with zeros");
  EXPECT_EQ(readJpegHeader(withTables(jpeg, flatTables(1))).quality, 100);
  EXPECT_EQ(readJpegHeader(withTables(jpeg, flatTables(255))).quality, 1);
  Bytes fifth = flatTables(16);
  fifth[65] = 4;
  expectDamaged(withTables(jpeg, fifth), "has a quantisation table that is not a valid one");
  Bytes partial = flatTables(16);
  partial.pop_back();
  expectDamaged(withTables(jpeg, partial), "has a quantisation table that is not a valid one");
  Bytes another = flatTables(16);
  another[65] = 3;
  expectDamaged(withTables(jpeg, another), "lacks quantisation tables");
  Bytes beyond = jpeg;
  const Segment tables = segment(jpeg, kTables);
  beyond[tables.begin + 2] = beyond[tables.begin + 3] = 0xFF;
  expectDamaged(beyond, "has a segment that is longer than the frame");
  beyond[tables.begin + 2] = beyond[tables.begin + 3] = 0;
  expectDamaged(beyond, "has a segment that is longer than the frame");
}

TEST_F(JpegHeaderTest, WideTablesAreReadAndNotPlain) {
  Bytes wide;
  for (const int number : {0x10, 0x11}) {
    wide.push_back(static_cast<unsigned char>(number));
    for (int i = 0; i < 64; ++i) wide.insert(wide.end(), {1, 0});
  }
  const JpegHeader header = readJpegHeader(withTables(jpeg, wide));
  EXPECT_EQ(header.state, State::Unusual);
  EXPECT_STREQ(header.fault, "is not a baseline JPEG");
  EXPECT_EQ(header.quality, 1);
}

TEST_F(JpegHeaderTest, WhatNotEveryDecoderReads) {
  const JpegHeader brief = readJpegHeader(withoutSegments(jpeg, kHuffman));
  EXPECT_EQ(brief.state, State::Unusual);
  EXPECT_STREQ(brief.fault, "lacks Huffman tables");
  Bytes progressive = jpeg;
  progressive[segment(jpeg, 0xC0).begin + 1] = 0xC2;
  EXPECT_EQ(readJpegHeader(progressive).state, State::Unusual);
  EXPECT_STREQ(readJpegHeader(progressive).fault, "is not a baseline JPEG");
}

TEST_F(JpegHeaderTest, SegmentsWithoutEndAreNotFollowed) {
  Bytes many = {0xFF, 0xD8};
  for (int i = 0; i < 100'000; ++i) many.insert(many.end(), {0xFF, 0xFE, 0, 2});
  expectDamaged(many, "has too many segments");
}

}  // namespace
}  // namespace lumsar::test
