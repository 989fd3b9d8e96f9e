// Camera data over a real RDP channel: whole and equal whatever their size, both ways at once, in
// pieces that the channel can carry.
#include <cstdlib>
#include <numeric>
#include <thread>

#include "integration/rdp/rig.h"

namespace lumsar::test {
namespace {

class RdpData : public Rig {
 protected:
  // The host refuses control data, as these are to it, when more of it waits than this.
  static constexpr std::size_t kOnTheWay = 8U << 20U;

  // Sends camera data of these payload sizes, many at once, and expects each at the VM.
  void expectAllThrough(const std::vector<std::size_t>& sizes) {
    startSession();
    std::size_t sent = 0;
    std::size_t onTheWay = 0;
    for (std::size_t i = 0; i < sizes.size(); ++i) {
      while (sent < sizes.size() && (sent == i || onTheWay + sizes[sent] < kOnTheWay)) {
        service->send(message(IPC_MSG_DATA, noise(sizes[sent], numbered(sent))));
        onTheWay += sizes[sent++];
      }
      const auto arrived = server->messages().nextOf(MSG_DATA);
      ASSERT_TRUE(arrived && payloadOf(*arrived) == noise(sizes[i], numbered(i)))
          << "payload of " << sizes[i] << " bytes did not arrive as it was";
      onTheWay -= sizes[i];
    }
    EXPECT_EQ(server->strayBytes(), 0U);
    EXPECT_LE(server->largestPiece(), static_cast<std::size_t>(kRdpFragmentSize));
    stopHost();
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
    const std::size_t payload = pieces * std::size_t{kRdpFragmentSize} - kHeaderSize;
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
  startSession();
  expectAtVm(noise(100'000, 1));
  const auto before = host->processorTime();
  ASSERT_GT(before, milliseconds(0));
  std::this_thread::sleep_for(seconds(2));
  EXPECT_LT(host->processorTime() - before, milliseconds(300));
}

TEST_F(RdpData, BothWaysAtOnce) {
  constexpr std::size_t kCount = 30;
  constexpr std::size_t kSize = 300'000;
  startSession();
  std::thread fromVm([&] {
    for (std::uint32_t i = 0; i < kCount; ++i) {
      server->send(message(MSG_DATA, noise(kSize, 1000 + i)));
    }
  });
  std::thread fromService([&] {
    for (std::uint32_t i = 0; i < kCount; ++i) {
      service->send(message(IPC_MSG_DATA, noise(kSize, i)));
    }
  });
  for (std::uint32_t i = 0; i < kCount; ++i) {
    const auto down = service->messages().nextOf(IPC_MSG_DATA);
    const auto up = server->messages().nextOf(MSG_DATA);
    if (!down || !up) {
      ADD_FAILURE() << "the data stopped at number " << i;
      break;
    }
    EXPECT_EQ(payloadOf(*down), noise(kSize, 1000 + i));
    EXPECT_EQ(payloadOf(*up), noise(kSize, i));
  }
  fromVm.join();
  fromService.join();
}

TEST_F(RdpData, StalledServerLosesWholeFramesOnlyAndNoControlMessage) {
  startSession();
  server->stall(true);
  constexpr std::uint32_t kFrames = 150;
  for (std::uint32_t i = 0; i < kFrames; ++i) service->sendFrame(i, 1'000'000);
  expectGrowthBelow(32L * 1024);
  const Bytes control = noise(5000, 77);
  service->send(message(IPC_MSG_DATA, control));
  server->stall(false);

  std::size_t frames = 0;
  bool controlArrived = false;
  while (!controlArrived) {
    const auto arrived = server->messages().nextOf(MSG_DATA);
    ASSERT_TRUE(arrived);
    controlArrived = payloadOf(*arrived) == control;
    frames += controlArrived ? 0 : 1;
  }
  EXPECT_GT(frames, 0U);
  EXPECT_LT(frames, kFrames);
  EXPECT_EQ(server->strayBytes(), 0U);
  EXPECT_EQ(server->clients(), 1) << "the connection was lost";
  stopHost();
  EXPECT_EQ(host->countOf("\"dropped\":0"), 0);
}

}  // namespace
}  // namespace lumsar::test
