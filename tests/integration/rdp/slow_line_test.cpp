// Lines that take less than the cameras give: the VM is heard all the same.
#include "support/slow_line.h"
#include "integration/rdp/addin_process.h"
#include "integration/rdp/rig.h"

namespace lumsar::test {
namespace {

// Frames without end, far more than the line takes.
class BusyCamera {
 public:
  explicit BusyCamera(CameraService& service)
      : m_thread([this, &service] {
          for (std::uint32_t i = 0; !m_stopping; ++i) {
            service.sendFrame(i, 100'000);
            m_sent = i;
            std::this_thread::sleep_for(milliseconds(10));
          }
        }) {}
  ~BusyCamera() {
    m_stopping = true;
    m_thread.join();
  }
  std::uint32_t sent() const { return m_sent; }
  BusyCamera(const BusyCamera&) = delete;
  BusyCamera& operator=(const BusyCamera&) = delete;

 private:
  std::atomic<bool> m_stopping{false};
  std::atomic<std::uint32_t> m_sent{0};
  std::thread m_thread;
};

class RdpSlowLine : public Rig {
 protected:
  static constexpr std::size_t kBytesPerSecond = 300'000;

  void startServerBehindTheLine() {
    startService();
    RdpServerSetup setup = serverSetup();
    setup.socket = path("behind");
    server.emplace(setup);
    m_line.emplace(path("rdp"), path("behind"), kBytesPerSecond);
  }

  void expectToHearTheVm() {
    beginSession();
    const BusyCamera camera(*service);
    for (int i = 0; i < 6; ++i) ASSERT_TRUE(server->messages().nextOf(MSG_DATA));
    const Bytes word = noise(1000, 1);
    server->send(message(MSG_DATA, word));
    const auto data = service->messages().nextOf(IPC_MSG_DATA);
    ASSERT_TRUE(data);
    EXPECT_EQ(payloadOf(*data), word);
  }

 private:
  std::optional<SlowLine> m_line;
};

TEST_F(RdpSlowLine, HostHearsTheVm) {
  startServerBehindTheLine();
  startHost();
  expectToHearTheVm();
}

TEST_F(RdpSlowLine, InterruptWhileTheServerTakesNothing) {
  startSession();
  server->stall(true);
  const BusyCamera camera(*service);
  ASSERT_TRUE(eventually([&] { return camera.sent() > 150; }));
  expectQuickStop();
}

TEST_F(RdpSlowLine, AddInHearsTheVm) {
  startServerBehindTheLine();
  AddInProcess client(path("rdp"), path("state"), addInWords());
  ASSERT_TRUE(client.connected());
  expectToHearTheVm();
}

}  // namespace
}  // namespace lumsar::test
