// Camera data over a real RDP channel: whole and equal whatever their size, both ways at once, in
// pieces that the channel can carry.
#include <cstdlib>
#include <numeric>
#include <thread>

#include "integration/rdp/rig.h"

namespace {

using namespace lumsar_test;

class RdpData : public Rig {
 protected:
  // The host refuses control data, as these are to it, when more of it waits than this.
  static constexpr std::size_t kOnTheWay = 8U << 20U;

  // Sends camera data of these payload sizes, many at once, and expects each at the VM.
  void expectAllThrough(const std::vector<std::size_t>& sizes) {
    startAll();
    greet();
    std::size_t sent = 0;
    std::size_t onTheWay = 0;
    for (std::size_t i = 0; i < sizes.size(); ++i) {
      while (sent < sizes.size() && (sent == i || onTheWay + sizes[sent] < kOnTheWay)) {
        service->send(message(lumsar::IPC_MSG_DATA, noise(sizes[sent], numbered(sent))));
        onTheWay += sizes[sent++];
      }
      const auto arrived = server->messages().nextOf(lumsar::MSG_DATA);
      ASSERT_TRUE(arrived && payloadOf(*arrived) == noise(sizes[i], numbered(i)))
          << "payload of " << sizes[i] << " bytes did not arrive as it was";
      onTheWay -= sizes[i];
    }
    EXPECT_EQ(server->strayBytes(), 0U);
    EXPECT_LE(server->largestPiece(), static_cast<std::size_t>(lumsar::kRdpFragmentSize));
    EXPECT_EQ(host->stop(), 0);
  }

  static std::uint32_t numbered(std::size_t i) { return static_cast<std::uint32_t>(i); }
};

// Every multiple until the window of the channel has been filled twice, then far ones; with
// LUMSAR_TEST_EVERY_SIZE every one up to four megabytes, which are 17 GB in all.
TEST_F(RdpData, AroundEveryMultipleOfThePieceSize) {
  const bool all = std::getenv("LUMSAR_TEST_EVERY_SIZE") != nullptr;
  std::vector<std::size_t> multiples(all ? 2730 : 130);
  std::iota(multiples.begin(), multiples.end(), 1);
  if (!all) multiples.insert(multiples.end(), {256, 333, 1000, 2048, 2730});
  std::vector<std::size_t> sizes;
  for (const std::size_t pieces : multiples) {
    const std::size_t payload = pieces * std::size_t{lumsar::kRdpFragmentSize} - lumsar::kHeaderSize;
    for (const std::size_t size : {payload - 1, payload, payload + 1}) sizes.push_back(size);
  }
  expectAllThrough(sizes);
}

TEST_F(RdpData, FromOneByteToFourMegabytes) {
  std::vector<std::size_t> sizes;
  for (std::size_t size = 1; size <= 4U << 20U; size *= 2) sizes.push_back(size);
  expectAllThrough(sizes);
}

TEST_F(RdpData, HostWithNothingToSendSleeps) {
  startAll();
  greet();
  expectThrough(noise(100'000, 1));
  const auto before = host->processorTime();
  ASSERT_GT(before, milliseconds(0));
  std::this_thread::sleep_for(seconds(2));
  EXPECT_LT(host->processorTime() - before, milliseconds(300));
  EXPECT_EQ(host->stop(), 0);
}

TEST_F(RdpData, BothWaysAtOnce) {
  constexpr std::size_t kCount = 30;
  constexpr std::size_t kSize = 300'000;
  startAll();
  greet();
  std::thread fromVm([&] {
    for (std::uint32_t i = 0; i < kCount; ++i) {
      server->send(message(lumsar::MSG_DATA, noise(kSize, 1000 + i)));
    }
  });
  std::thread fromService([&] {
    for (std::uint32_t i = 0; i < kCount; ++i) {
      service->send(message(lumsar::IPC_MSG_DATA, noise(kSize, i)));
    }
  });
  for (std::uint32_t i = 0; i < kCount; ++i) {
    const auto down = service->messages().nextOf(lumsar::IPC_MSG_DATA);
    const auto up = server->messages().nextOf(lumsar::MSG_DATA);
    if (!down || !up) {
      ADD_FAILURE() << "the data stopped at number " << i;
      break;
    }
    EXPECT_EQ(payloadOf(*down), noise(kSize, 1000 + i));
    EXPECT_EQ(payloadOf(*up), noise(kSize, i));
  }
  fromVm.join();
  fromService.join();
  EXPECT_EQ(host->stop(), 0);
}

TEST_F(RdpData, StalledServerLosesWholeFramesOnlyAndNoControlMessage) {
  startAll();
  greet();
  server->stall(true);
  const auto end = std::chrono::steady_clock::now() + seconds(3);
  std::uint32_t sequence = 0;
  while (std::chrono::steady_clock::now() < end) {
    service->send(frame(sequence++, 1'000'000));
    std::this_thread::sleep_for(milliseconds(20));
  }
  expectGrowthBelow(32L * 1024);
  const Bytes control = noise(5000, 77);
  service->send(message(lumsar::IPC_MSG_DATA, control));
  server->stall(false);

  std::size_t frames = 0;
  bool controlArrived = false;
  while (!controlArrived) {
    const auto arrived = server->messages().nextOf(lumsar::MSG_DATA);
    ASSERT_TRUE(arrived);
    controlArrived = payloadOf(*arrived) == control;
    frames += controlArrived ? 0 : 1;
  }
  EXPECT_GT(frames, 0U);
  EXPECT_LT(frames, sequence);
  EXPECT_EQ(server->strayBytes(), 0U);
  EXPECT_EQ(server->clients(), 1) << "the connection was lost";
  EXPECT_EQ(host->stop(), 0);
  EXPECT_EQ(host->countOf("\"dropped\":0"), 0);
}

}  // namespace
