// The whole service: killed, started again, activated by a socket. It is a process of its own.
#include <fcntl.h>

#include "base/net/socket_listener.h"
#include "support/process.h"
#include "unit/camera-service/test_host.h"

namespace lumsar::test {
namespace {

class RecoveryTest : public ServiceTest {};

TEST_F(RecoveryTest, KilledAndStartedAgain) {
  start({"--camera", "test:A,320x240@30"});
  watch(host(), "test:A");
  const auto begin = std::chrono::steady_clock::now();
  m_service->signal(SIGKILL);
  ASSERT_TRUE(host().recorder.awaitClose());
  EXPECT_LT(host().recorder.closeTime() - begin, kAtOnce);
  m_service->wait();
  EXPECT_TRUE(std::filesystem::exists(channel)) << "a killed service leaves its socket";
  start({"--camera", "test:A,320x240@30"});
  EXPECT_EQ(host().client().connect(channel.c_str()), 0);
  host().records.clear();
  watch(host(), "test:A");
}

TEST_F(RecoveryTest, ActivatedByASocket) {
  const auto listener =
      base::SocketListener::at({channel, {}, 0}, base::SocketListener::Directory::Make);
  // A shell gives the socket its number and itself the service's process id, as a manager would.
  const std::string script = "exec 3<&" + std::to_string(listener.get()) +
                             "; LISTEN_FDS=1 LISTEN_PID=$$ exec " CAMERA_SERVICE
                             " --camera test:A,320x240@30";
  ::fcntl(listener.get(), F_SETFD, 0);
  TestHost* waiting = nullptr;
  std::unique_ptr<TestHost> early;
  std::thread connecting([&] {
    early = std::make_unique<TestHost>(channel);
    waiting = early.get();
  });
  Process service({"/bin/sh", "-c", script});
  connecting.join();
  ASSERT_NE(waiting, nullptr);
  EXPECT_TRUE(waiting->awaitCamera("test:A")) << service.output();
  EXPECT_NE(service.output().find("listening at " + channel), std::string::npos);
  service.signal(SIGTERM);
  EXPECT_EQ(service.wait(), 0);
  EXPECT_TRUE(std::filesystem::exists(channel)) << "the socket is the manager's";
}

}  // namespace
}  // namespace lumsar::test
