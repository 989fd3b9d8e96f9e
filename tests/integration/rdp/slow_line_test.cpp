// Lines that take less than the cameras give: the VM is heard all the same.
#include "integration/rdp/slow_line.h"
#include "integration/rdp/addin_client.h"
#include "integration/rdp/rig.h"

namespace {

using namespace lumsar_test;

// Frames without end, far more than the line takes.
class BusyCamera {
 public:
  explicit BusyCamera(CameraService& service)
      : m_thread([this, &service] {
          for (std::uint32_t i = 0; !m_stopping; ++i) {
            service.send(frame(i, 100'000));
            std::this_thread::sleep_for(milliseconds(10));
          }
        }) {}
  ~BusyCamera() {
    m_stopping = true;
    m_thread.join();
  }
  BusyCamera(const BusyCamera&) = delete;
  BusyCamera& operator=(const BusyCamera&) = delete;

 private:
  std::atomic<bool> m_stopping{false};
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
    ASSERT_TRUE(server->waitForClient());
    greet();
    const BusyCamera camera(*service);
    std::this_thread::sleep_for(seconds(3));
    const Bytes word = noise(1000, 1);
    server->send(message(lumsar::MSG_DATA, word));
    const auto data = service->messages().nextOf(lumsar::IPC_MSG_DATA, seconds(5));
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
  EXPECT_EQ(host->stop(), 0);
}

TEST_F(RdpSlowLine, InterruptWhileTheServerTakesNothing) {
  startAll();
  greet();
  server->stall(true);
  const BusyCamera camera(*service);
  std::this_thread::sleep_for(seconds(2));
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(host->stop(), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, seconds(5));
}

TEST_F(RdpSlowLine, AddInHearsTheVm) {
  setenv("LUMSAR_TEST_SERVICE", path("service").c_str(), 1);
  startServerBehindTheLine();
  const AddInClient client(path("rdp"), path("state"), addInWords());
  ASSERT_TRUE(client.connected());
  expectToHearTheVm();
}

}  // namespace
