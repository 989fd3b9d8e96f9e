// Tests of writer.h: whole messages from many threads, and a reader that does not read. Several
// threads on one socket pair.
#include "ipc/client/writer.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include "lumsar/assembler.h"
#include "support/raw_peer.h"

namespace lumsar::test {
namespace {

struct Pair {
  Pair() {
    int fds[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0)
      throw std::runtime_error("");
    ours = base::UniqueFd(fds[0]);
    theirs = RawPeer(base::UniqueFd(fds[1]));
  }
  UniqueFd ours;
  RawPeer theirs;
};

TEST(WriterTest, MessagesOfSeveralThreadsDoNotInterleave) {
  constexpr int kThreads = 4;
  constexpr int kMessages = 100;
  Pair pair;
  ipc::Writer writer;
  std::vector<std::thread> senders;
  for (int i = 0; i < kThreads; ++i) {
    senders.emplace_back([&, i] {
      const Bytes whole = message(6, std::string(10'000, static_cast<char>('a' + i)));
      const std::span bytes(whole);
      for (int n = 0; n < kMessages; ++n) {
        EXPECT_EQ(writer
                      .write(pair.ours.get(), bytes.first(kHeaderSize), bytes.subspan(kHeaderSize),
                             kTimeout)
                      .error,
                  0);
      }
    });
  }
  for (int n = 0; n < kThreads * kMessages; ++n) {
    const std::string payload = textOf(payloadOf(pair.theirs.receive()));
    ASSERT_EQ(payload, std::string(10'000, payload.at(0)));
  }
  for (std::thread& sender : senders) sender.join();
}

TEST(WriterTest, AReaderThatDoesNotReadCostsTheTimeLimitOnly) {
  Pair pair;
  ipc::Writer writer;
  const Bytes huge = message(6, std::string(8U << 20U, 'x'));
  const auto begin = std::chrono::steady_clock::now();
  const auto result = writer.write(pair.ours.get(), huge, {}, milliseconds(100));
  EXPECT_EQ(result.error, IPC_ERROR_SEND_TIMEOUT);
  EXPECT_TRUE(result.broken);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, kAtOnce);
}

TEST(WriterTest, NothingFollowsAMessageThatWasCut) {
  Pair pair;
  ipc::Writer writer;
  writer.write(pair.ours.get(), message(6, std::string(8U << 20U, 'x')), {}, milliseconds(20));
  const auto next = writer.write(pair.ours.get(), message(6), {}, milliseconds(20));
  EXPECT_EQ(next.error, IPC_ERROR_SEND_TIMEOUT);
  EXPECT_FALSE(next.broken);
}

TEST(WriterTest, ATimeoutBeforeTheFirstByteLeavesTheStreamWhole) {
  Pair pair;
  ipc::Writer writer;
  const Bytes small = message(6, std::string(1000, 'x'));
  ipc::Writer::Result result;
  // Until the socket is full; a message of this size goes in whole or not at all.
  while (result.error == 0) result = writer.write(pair.ours.get(), small, {}, milliseconds(20));
  EXPECT_EQ(result.error, IPC_ERROR_SEND_TIMEOUT);
  EXPECT_FALSE(result.broken);
  pair.theirs.read(20 * small.size());
  EXPECT_EQ(writer.write(pair.ours.get(), small, {}, milliseconds(20)).error, 0);
}

TEST(WriterTest, WaitingForATurnHasTheSameLimit) {
  Pair pair;
  ipc::Writer writer;
  const Bytes huge = message(6, std::string(8U << 20U, 'x'));
  std::thread stuck([&] { writer.write(pair.ours.get(), huge, {}, kTimeout); });
  EXPECT_EQ(pair.theirs.read(1).size(), 1U) << "it has its turn";
  const auto begin = std::chrono::steady_clock::now();
  const auto result = writer.write(pair.ours.get(), message(6), {}, milliseconds(50));
  EXPECT_EQ(result.error, IPC_ERROR_SEND_TIMEOUT);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, kTimeout / 2);
  pair.theirs.close();
  stuck.join();
}

TEST(WriterTest, AReaderThatIsGoneIsAnErrorAndNoSignal) {
  Pair pair;
  pair.theirs.close();
  ipc::Writer writer;
  EXPECT_EQ(writer.write(pair.ours.get(), message(6), {}, kTimeout).error, IPC_ERROR_SERVICE_GONE);
}

}  // namespace
}  // namespace lumsar::test
