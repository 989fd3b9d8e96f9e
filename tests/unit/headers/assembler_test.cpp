// include/lumsar/assembler.h: whole messages out of pieces of every size, faults, skipping to the
// next possible header, the limit.
#include "lumsar/assembler.h"

#include <gtest/gtest.h>

#include <utility>

#include "support/plugin/wire.h"

namespace lumsar::test {
namespace {

using Fault = MessageAssembler::Fault;

std::vector<Bytes> drain(MessageAssembler& assembler) {
  std::vector<Bytes> messages;
  for (auto next = assembler.next(); !next.empty(); next = assembler.next()) {
    messages.emplace_back(next.begin(), next.end());
  }
  return messages;
}

const std::vector<Bytes> kMessages = {message(0, "hello"), message(1), message(6, pattern(300)),
                                      message(7, "MACVMACV"), message(2)};

Bytes stream() {
  Bytes all;
  for (const Bytes& one : kMessages) all = all + one;
  return all;
}

class Pieces : public testing::TestWithParam<std::size_t> {};

TEST_P(Pieces, ComeOutWhole) {
  const Bytes all = stream();
  MessageAssembler assembler;
  std::vector<Bytes> messages;
  for (std::size_t at = 0; at < all.size(); at += GetParam()) {
    const std::size_t size = std::min(GetParam(), all.size() - at);
    assembler.append({all.data() + at, size});
    for (Bytes& one : drain(assembler)) messages.push_back(std::move(one));
    EXPECT_EQ(assembler.fault(), Fault::None);
  }
  EXPECT_EQ(messages, kMessages);
  EXPECT_EQ(assembler.pending(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Sizes, Pieces,
                         testing::Values(1U, 2U, 3U, 4U, 5U, 31U, 32U, 33U, 36U, 37U, 64U, 331U,
                                         332U, 333U, 1000U));

TEST(Assembler, EverySplitInTwo) {
  const Bytes all = stream();
  for (std::size_t split = 0; split <= all.size(); ++split) {
    MessageAssembler assembler;
    assembler.append({all.data(), split});
    std::vector<Bytes> messages = drain(assembler);
    assembler.append({all.data() + split, all.size() - split});
    for (Bytes& one : drain(assembler)) messages.push_back(std::move(one));
    EXPECT_EQ(messages, kMessages) << split;
  }
}

TEST(Assembler, ReadsIntoPreparedRoomOfTheMissingSize) {
  const Bytes one = message(6, pattern(5000));
  MessageAssembler assembler;
  std::size_t at = 0;
  EXPECT_EQ(assembler.missing(), 32U);
  while (at < one.size()) {
    const std::size_t size = assembler.missing();
    ASSERT_LE(at + size, one.size()) << "never asks for more than this message";
    const auto room = assembler.prepare(size);
    ASSERT_EQ(room.size(), size);
    const std::size_t came = std::min<std::size_t>(size, 700);
    std::copy_n(one.begin() + static_cast<std::ptrdiff_t>(at), came, room.begin());
    assembler.commit(came);
    at += came;
  }
  EXPECT_EQ(drain(assembler), std::vector<Bytes>{one});
}

TEST(Assembler, NothingToBeginWith) {
  MessageAssembler assembler;
  EXPECT_TRUE(assembler.next().empty());
  EXPECT_EQ(assembler.fault(), Fault::None);
  EXPECT_EQ(assembler.pending(), 0U);
  EXPECT_EQ(assembler.skipFault(), 0U);
  assembler.append({});
  EXPECT_TRUE(assembler.next().empty());
}

TEST(Assembler, WrongMagicIsSeenAtItsFirstByte) {
  for (std::size_t good = 0; good < 4; ++good) {
    MessageAssembler assembler;
    Bytes bytes = message(1);
    assembler.append({bytes.data(), good});
    EXPECT_EQ(assembler.fault(), Fault::None) << good;
    assembler.append(Bytes{'x'});
    EXPECT_EQ(assembler.fault(), Fault::Magic) << good;
    EXPECT_TRUE(assembler.next().empty());
  }
}

TEST(Assembler, FaultStaysUntilItIsSkipped) {
  MessageAssembler assembler;
  assembler.append(bytesOf("tail of an old M message") + message(1, "new"));
  EXPECT_TRUE(assembler.next().empty());
  EXPECT_TRUE(assembler.next().empty());
  EXPECT_EQ(assembler.fault(), Fault::Magic);
  EXPECT_EQ(assembler.skipFault(), 24U);
  EXPECT_EQ(assembler.fault(), Fault::None);
  EXPECT_EQ(drain(assembler), std::vector<Bytes>{message(1, "new")});
}

TEST(Assembler, SkippingKeepsTheBeginningOfAPossibleHeader) {
  MessageAssembler assembler;
  assembler.append(bytesOf("oldMAC"));
  EXPECT_EQ(assembler.skipFault(), 3U);
  EXPECT_EQ(assembler.pending(), 3U);
  const Bytes rest = message(3);
  assembler.append({rest.data() + 3, rest.size() - 3});
  EXPECT_EQ(drain(assembler), std::vector<Bytes>{message(3)});
}

TEST(Assembler, SkippingMayDropEverything) {
  MessageAssembler assembler;
  assembler.append(bytesOf("nothing of use"));
  EXPECT_EQ(assembler.skipFault(), 14U);
  EXPECT_EQ(assembler.pending(), 0U);
  assembler.append(message(3));
  EXPECT_EQ(drain(assembler), std::vector<Bytes>{message(3)});
}

TEST(Assembler, MessagesBeforeAFaultAreDelivered) {
  MessageAssembler assembler;
  assembler.append(message(1, "good") + bytesOf("bad"));
  EXPECT_EQ(drain(assembler), std::vector<Bytes>{message(1, "good")});
  EXPECT_EQ(assembler.fault(), Fault::Magic);
}

TEST(Assembler, LimitIsThePayloads) {
  MessageAssembler assembler(10);
  assembler.append(message(1, "0123456789"));
  EXPECT_EQ(drain(assembler).size(), 1U);
  const Bytes longer = message(1, "0123456789a");
  assembler.append({longer.data(), 32});
  EXPECT_EQ(assembler.fault(), Fault::TooLong);
  EXPECT_TRUE(assembler.next().empty());
  assembler.append({longer.data() + 32, 11});
  EXPECT_TRUE(assembler.next().empty());
  assembler.append(message(3));
  EXPECT_EQ(assembler.skipFault(), 43U);
  EXPECT_EQ(drain(assembler), std::vector<Bytes>{message(3)});
}

TEST(Assembler, DefaultLimitIs64Megabytes) {
  MessageAssembler assembler;
  assembler.append(bytesOf("MACV") + le32(1) + le32(64U << 20U) + Bytes(20));
  EXPECT_EQ(assembler.fault(), Fault::None);
  assembler.clear();
  assembler.append(bytesOf("MACV") + le32(1) + le32((64U << 20U) + 1) + Bytes(20));
  EXPECT_EQ(assembler.fault(), Fault::TooLong);
}

TEST(Assembler, LargestLengthDoesNotOverflow) {
  MessageAssembler assembler(0xFFFFFFFFU);
  assembler.append(bytesOf("MACV") + le32(1) + le32(0xFFFFFFFFU) + Bytes(20));
  EXPECT_EQ(assembler.fault(), Fault::None);
  EXPECT_TRUE(assembler.next().empty());
  EXPECT_EQ(assembler.missing(), 0xFFFFFFFFU);
}

TEST(Assembler, GivesBackTheMemoryOfALargeMessage) {
  MessageAssembler assembler;
  const Bytes large = message(6, pattern(20U << 20U));
  const std::span<const unsigned char> bytes(large.data(), large.size());
  assembler.append(bytes);
  EXPECT_EQ(assembler.next().size(), large.size());
  assembler.append(bytes.first(100));
  EXPECT_LE(assembler.capacity(), kKeptCapacity);
  assembler.append(bytes.subspan(100));
  EXPECT_TRUE(std::ranges::equal(assembler.next(), large));
  assembler.append(large);
  assembler.clear();
  EXPECT_LE(assembler.capacity(), kKeptCapacity);
}

TEST(Assembler, KeepsTheMemoryOfAMessageThatIsNotLarge) {
  MessageAssembler assembler;
  const Bytes bytes = message(6, pattern(4'000'000));
  const auto receive = [&] {
    std::size_t step = 64U << 10U;
    for (std::size_t at = 0; at < bytes.size(); at += std::exchange(step, 1U << 20U)) {
      assembler.append({bytes.data() + at, std::min(step, bytes.size() - at)});
    }
    EXPECT_EQ(assembler.next().size(), bytes.size());
    assembler.trim();
  };
  receive();
  const std::size_t kept = assembler.capacity();
  EXPECT_GE(kept, bytes.size());
  receive();
  EXPECT_EQ(assembler.capacity(), kept);
}

TEST(Assembler, ClearForgetsEverything) {
  MessageAssembler assembler;
  assembler.append(bytesOf("bad"));
  assembler.clear();
  EXPECT_EQ(assembler.pending(), 0U);
  EXPECT_EQ(assembler.fault(), Fault::None);
  assembler.append(message(1, "x"));
  EXPECT_EQ(drain(assembler), std::vector<Bytes>{message(1, "x")});
}

TEST(Assembler, MessageMayBeChangedInPlace) {
  MessageAssembler assembler;
  assembler.append(message(6, "a") + message(6, "b"));
  assembler.next()[4] = 1;
  EXPECT_EQ(drain(assembler), std::vector<Bytes>{message(6, "b")});
}

TEST(Assembler, KeepsTheBeginningOfWhatFollowsALargeMessage) {
  MessageAssembler assembler;
  assembler.append(message(6, Bytes(20U << 20U)));
  const Bytes next = message(1, "next");
  assembler.append({next.data(), 10});
  EXPECT_EQ(assembler.next().size(), kHeaderSize + (20U << 20U));
  assembler.append({next.data() + 10, next.size() - 10});
  EXPECT_LE(assembler.capacity(), 4U << 20U);
  EXPECT_EQ(drain(assembler), std::vector<Bytes>{next});
}

}  // namespace
}  // namespace lumsar::test
