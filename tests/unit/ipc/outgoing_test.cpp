// Tests of outgoing.h: messages in their buffer, and what the queue drops. Test's main thread.
#include "ipc/server/outgoing.h"

#include <gtest/gtest.h>

#include "lumsar/ipc_transport.h"

namespace lumsar::test {
namespace {

using ipc::Message;
using ipc::Outgoing;
using ipc::OutQueue;

Outgoing frame(std::size_t size, int* dropped = nullptr) {
  return {Message(IPC_MSG_DATA, size), true, {}, [dropped] {
            if (dropped != nullptr) ++*dropped;
          }};
}
Outgoing control(std::uint32_t type, std::size_t size = 0) {
  return {Message(type, size)};
}

TEST(OutgoingMessage, HoldsHeaderAndPayloadInOneBuffer) {
  Message made(IPC_MSG_DEVICE_CHANGE, "hello", 7);
  const RedirMsgHeader header = readHeader(made.bytes().data());
  EXPECT_EQ(header.magic, kMagic);
  EXPECT_EQ(header.type, IPC_MSG_DEVICE_CHANGE);
  EXPECT_EQ(header.length, 5U);
  EXPECT_EQ(header.param, 7U);
  EXPECT_EQ(callNumber(header), 0U);
  EXPECT_EQ(made.bytes().size(), kHeaderSize + 5);
  EXPECT_EQ(made.payload().data(), made.bytes().data() + kHeaderSize);
}

TEST(OutQueueTest, KeepsTheOrder) {
  OutQueue queue;
  for (std::uint32_t type : {2U, 3U, 4U}) EXPECT_TRUE(queue.push(control(type)));
  for (std::uint32_t type : {2U, 3U, 4U}) EXPECT_EQ(queue.pop()->message.header().type, type);
  EXPECT_FALSE(queue.pop().has_value());
}

TEST(OutQueueTest, DropsTheOldestFramesFirst) {
  OutQueue queue({.frames = 2});
  int first = 0;
  int second = 0;
  queue.push(frame(10, &first));
  queue.push(frame(20, &second));
  queue.push(frame(30));
  EXPECT_EQ(first, 1);
  EXPECT_EQ(second, 0);
  EXPECT_EQ(queue.dropped(), 1U);
  EXPECT_EQ(queue.frames(), 2U);
  EXPECT_EQ(queue.pop()->message.payload().size(), 20U);
}

TEST(OutQueueTest, NeverDropsControlMessages) {
  OutQueue queue({.frames = 1});
  queue.push(control(2));
  for (int i = 0; i < 10; ++i) queue.push(frame(10));
  queue.push(control(3));
  for (int i = 0; i < 10; ++i) queue.push(frame(10));
  EXPECT_EQ(queue.dropped(), 19U);
  EXPECT_EQ(queue.pop()->message.header().type, 2U);
  EXPECT_EQ(queue.pop()->message.header().type, 3U);
  EXPECT_TRUE(queue.pop()->frame);
  EXPECT_TRUE(queue.empty());
}

TEST(OutQueueTest, BoundsTheFramesBytesButKeepsOne) {
  OutQueue queue({.frames = 100, .frameBytes = 1000});
  queue.push(frame(5000));
  EXPECT_EQ(queue.frames(), 1U);
  queue.push(frame(600));
  EXPECT_EQ(queue.frames(), 1U);
  queue.push(frame(100));
  EXPECT_EQ(queue.frames(), 2U);
  queue.push(frame(600));
  EXPECT_EQ(queue.frames(), 2U);
  EXPECT_EQ(queue.dropped(), 2U);
}

TEST(OutQueueTest, SaysWhenControlMessagesExceedTheirLimit) {
  OutQueue queue({.controlBytes = 100});
  EXPECT_TRUE(queue.push(control(8, 60)));
  EXPECT_FALSE(queue.push(control(8, 60)));
}

TEST(OutQueueTest, OneControlMessageMayWaitHoweverLarge) {
  OutQueue queue({.controlBytes = 100});
  EXPECT_TRUE(queue.push(control(8, 600)));
  EXPECT_FALSE(queue.push(control(8, 1)));
  queue.pop();
  queue.pop();
  EXPECT_TRUE(queue.push(control(8, 600)));
}

TEST(OutQueueTest, CountsBytesExactly) {
  OutQueue queue;
  queue.push(frame(10));
  queue.push(control(2, 5));
  EXPECT_EQ(queue.bytes(), 2 * kHeaderSize + 15);
  queue.pop();
  queue.pop();
  EXPECT_EQ(queue.bytes(), 0U);
}

}  // namespace
}  // namespace lumsar::test
