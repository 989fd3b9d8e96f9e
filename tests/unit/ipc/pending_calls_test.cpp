// Tests of pending_calls.h: replies and those who wait for them. Several threads.
#include "ipc/client/pending_calls.h"

#include <gtest/gtest.h>

#include "lumsar/vdi_ipc.h"
#include "support/eventually.h"
#include "support/messages.h"

namespace lumsar::test {
namespace {

using ipc::PendingCalls;

struct Waiting {
  explicit Waiting(std::size_t size) : buffer(size) {
    call.reply = buffer.data();
    call.capacity = size;
  }
  Bytes buffer;
  PendingCalls::Call call;
};

TEST(PendingCallsTest, AReplyGoesToItsCall) {
  PendingCalls calls;
  Waiting first(64);
  Waiting second(64);
  const auto one = calls.add(first.call);
  const auto two = calls.add(second.call);
  EXPECT_NE(one, two);
  calls.complete(two, callMessage(1, "two", two));
  calls.complete(one, callMessage(1, "one", one));
  EXPECT_EQ(calls.wait(one, first.call, kTimeout), 0);
  EXPECT_EQ(calls.wait(two, second.call, kTimeout), 0);
  EXPECT_EQ(first.buffer[kHeaderSize], 'o');
  EXPECT_EQ(second.buffer[kHeaderSize], 't');
}

TEST(PendingCallsTest, TheCallNumberIsZeroAgainForTheCaller) {
  PendingCalls calls;
  Waiting waiting(64);
  const auto number = calls.add(waiting.call);
  calls.complete(number, callMessage(1, "x", number));
  EXPECT_EQ(calls.wait(number, waiting.call, kTimeout), 0);
  EXPECT_EQ(callNumber(readHeader(waiting.buffer.data())), 0U);
}

TEST(PendingCallsTest, AReplyOfExactlyTheBuffersSizeFits) {
  PendingCalls calls;
  Waiting waiting(kHeaderSize + 3);
  const auto number = calls.add(waiting.call);
  calls.complete(number, callMessage(1, "abc", number));
  EXPECT_EQ(calls.wait(number, waiting.call, kTimeout), 0);
  EXPECT_EQ(waiting.call.size, kHeaderSize + 3);
}

TEST(PendingCallsTest, AReplyThatDoesNotFitLeavesTheBufferAlone) {
  PendingCalls calls;
  Waiting waiting(kHeaderSize + 2);
  const auto number = calls.add(waiting.call);
  calls.complete(number, callMessage(1, "abc", number));
  EXPECT_EQ(calls.wait(number, waiting.call, kTimeout), kIpcReplyTooLarge);
  EXPECT_EQ(waiting.call.size, kHeaderSize + 3);
  EXPECT_EQ(waiting.buffer, Bytes(kHeaderSize + 2));
}

TEST(PendingCallsTest, ALateReplyIsDropped) {
  PendingCalls calls;
  Waiting waiting(64);
  const auto number = calls.add(waiting.call);
  EXPECT_EQ(calls.wait(number, waiting.call, milliseconds(10)), IPC_ERROR_REPLY_TIMEOUT);
  calls.complete(number, callMessage(1, "late", number));
  EXPECT_EQ(waiting.buffer, Bytes(64));
}

TEST(PendingCallsTest, FailureEndsWaitingAndLaterCalls) {
  PendingCalls calls;
  Waiting waiting(64);
  const auto number = calls.add(waiting.call);
  std::thread failing([&] { calls.fail(IPC_ERROR_SERVICE_GONE); });
  EXPECT_EQ(calls.wait(number, waiting.call, kTimeout), IPC_ERROR_SERVICE_GONE);
  failing.join();
  Waiting later(64);
  const auto next = calls.add(later.call);
  EXPECT_EQ(calls.wait(next, later.call, kTimeout), IPC_ERROR_SERVICE_GONE);
}

}  // namespace
}  // namespace lumsar::test
