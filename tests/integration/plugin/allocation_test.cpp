// What the data path costs: camera data pass without a copy and without an allocation, a send to
// the service allocates one buffer and copies the payload into it once.
// Drives the built plug-in through the receive callback and Handler on the test's thread.
// A program with counted allocations; the recorders here allocate nothing themselves.
#include <array>
#include <cstring>

#include "support/plugin/faults.h"
#include "support/plugin/plugin_test.h"

namespace lumsar_test {
namespace {

struct Passed {
  unsigned char* address;
  int length;
};
std::array<Passed, 16> passed;
std::size_t passedCount = 0;
bool passing = false;

int pass(unsigned char* data, int length) {
  if (passing) passed.at(passedCount++) = {data, length};
  return 0;
}

class Allocation : public PluginTest {
 protected:
  // Receives `message` and returns how many allocations that took.
  std::size_t receiveCounting(Bytes& message) {
    const int length = static_cast<int>(message.size());
    passing = true;
    const std::size_t before = allocationCount();
    const int status = ipc.params->onReceive(7, message.data(), length, ipc.params->userData);
    const std::size_t after = allocationCount();
    EXPECT_EQ(status, 0);
    return after - before;
  }
};

using LooseAllocation = Loose<Allocation>;

TEST_F(Allocation, CounterCounts) {
  const std::size_t before = allocationCount();
  const Bytes bytes(100);
  EXPECT_EQ(allocationCount() - before, 1U);
  EXPECT_EQ(lastAllocationSize(), 100U);
}

TEST_F(LooseAllocation, CameraDataOverSpice) {
  ASSERT_EQ(plugin.Init(pass, host.postEventFunc(), "vm-7", kConfig), 0);
  plugin.Event(0);
  Bytes received = message(6, pattern(1U << 20U));
  EXPECT_EQ(receiveCounting(received), 0U);
  ASSERT_EQ(passedCount, 1U);
  EXPECT_EQ(passed[0].address, received.data());
  EXPECT_EQ(passed[0].length, 32 + (1 << 20));
  EXPECT_EQ(received, message(1, pattern(1U << 20U)));
}

TEST_F(LooseAllocation, CameraDataOverRdp) {
  ASSERT_EQ(plugin.RdpInit("vm-7", pass), 0);
  handle(message(3));
  Bytes received = message(6, pattern(10000));
  EXPECT_EQ(receiveCounting(received), 0U);
  ASSERT_EQ(passedCount, 7U);
  unsigned char* expected = received.data();
  for (std::size_t i = 0; i < passedCount; ++i) {
    EXPECT_EQ(passed.at(i).address, expected);
    expected += passed.at(i).length;
  }
  EXPECT_EQ(expected, received.data() + received.size());
}

TEST_F(Allocation, SendAllocatesOneBufferOfTheMessagesSize) {
  startRdp();
  Bytes data = message(1, pattern(100000));
  std::size_t count = 0;
  std::size_t size = 0;
  ipc.onEntry = [&] {
    count = allocationCount();
    size = lastAllocationSize();
  };
  const std::size_t before = allocationCount();
  plugin.Handler(data.data(), static_cast<int>(data.size()));
  EXPECT_EQ(count - before, 1U);
  EXPECT_EQ(size, 100032U);
  const std::vector<IpcCall> calls = ipc.takeCalls();
  ASSERT_EQ(calls.size(), 1U);
  EXPECT_EQ(calls[0].text, sendOf(6, pattern(100000)));
  const auto* sent = static_cast<const unsigned char*>(calls[0].address);
  EXPECT_TRUE(sent + 100032 <= data.data() || sent >= data.data() + data.size());
}

TEST_F(Allocation, HeaderOnlySendAllocatesOnce) {
  startRdp();
  Bytes data = message(1);
  std::size_t count = 0;
  ipc.onEntry = [&] { count = allocationCount(); };
  const std::size_t before = allocationCount();
  plugin.Handler(data.data(), static_cast<int>(data.size()));
  EXPECT_EQ(count - before, 1U);
  EXPECT_EQ(ipc.take(), Lines{sendOf(6)});
}

}  // namespace
}  // namespace lumsar_test
