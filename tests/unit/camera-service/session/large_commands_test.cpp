// The whole service: commands and ids of any size. The service is a process of its own.
#include "support/resources.h"
#include "support/text.h"
#include "unit/camera-service/test_host.h"

namespace lumsar::test {
namespace {

class LargeCommandsTest : public ServiceTest {
 protected:
  LargeCommandsTest() { start({"--camera", "test:A,320x240"}); }
  std::string refusal() {
    return host().awaitChange("refused").value("reason").toString().toStdString();
  }
};

TEST_F(LargeCommandsTest, ACommandHasAtMostOneMebibyte) {
  host().share(std::string(2U << 20U, 'x'));
  EXPECT_TRUE(has(refusal(), "at most 1048576 bytes")) << refusal();
  EXPECT_FALSE(host().list().isEmpty()) << "and the service goes on";
}

TEST_F(LargeCommandsTest, APolicyToo) {
  host().policy({{"cameraCodec", QString(2 << 20, 'x')}});
  EXPECT_TRUE(has(refusal(), "at most 1048576 bytes")) << refusal();
}

TEST_F(LargeCommandsTest, WhatIsToldOfALongTextIsShort) {
  host().share(std::string(1'000'000, 'x'));
  EXPECT_LT(host().awaitChange("refused").value("camera").toString().size(), 5000);
  host().command(
      IPC_MSG_CONNECT_VM,
      {{"deviceId", "test:A"}, {"remoteIp", QString(1'000'000, 'x')}, {"remotePort", 1}});
  EXPECT_LT(host().awaitChange("refused", 2).value("reason").toString().size(), 5000);
  host().list();
  EXPECT_LT(log().size(), 30'000U);
}

TEST_F(LargeCommandsTest, AVmsIdIsShort) {
  host().command(IPC_MSG_SHARE, {{"deviceId", "test:A"}});
  host().records.await(CameraDataKind::Announced);
  const std::string tooLong(2000, 'v');
  host().send(IPC_MSG_SHARE,
              R"({"command":"share","deviceId":"test:A","vmId":")" + tooLong + "\"}");
  EXPECT_TRUE(has(refusal(), "the vmId is longer than")) << refusal();
}

TEST_F(LargeCommandsTest, AFloodOfRefusalsIsLoggedInPart) {
  for (int i = 0; i < 1000; ++i) host().share("7");
  EXPECT_EQ(host().awaitChange("refused", 1000).value("camera").toString(), "7");
  EXPECT_EQ(occurrences(log(), "refused 7"), 20);
  EXPECT_TRUE(m_service->says("(more lines like this one are only counted for a minute)")) << log();
}

TEST_F(LargeCommandsTest, WhatALargeMessageNeededIsGivenBack) {
  if (kMemoryIsTheSanitizers) GTEST_SKIP() << "the memory is the sanitizer's";
  ASSERT_TRUE(host().awaitCamera("test:A"));
  const long before = m_service->ownMemory();
  host().send(IPC_MSG_DATA, std::string(60U << 20U, 'x'));
  host().list();
  EXPECT_TRUE(eventually([&] { return m_service->ownMemory() < before + 20'000; }))
      << m_service->ownMemory() - before << " KiB more";
}

}  // namespace
}  // namespace lumsar::test
