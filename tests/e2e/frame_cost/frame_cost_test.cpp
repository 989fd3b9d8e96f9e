// What a frame costs on its way through host and guest agent that no machine changes: allocations,
// and copies of its bytes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <csignal>

#include "frame_cost/counts.h"
#include "integration/rdp/camera_service.h"
#include "support/process.h"
#include "support/temporary_directory.h"

namespace lumsar::test {
namespace {

constexpr std::uint64_t kHostAllocations = 0;
constexpr std::uint64_t kAgentAllocations = 4;
constexpr std::uint64_t kHostCopies = 0;
constexpr std::uint64_t kAgentCopies = 1;

// A program's counts, in a file that it maps too.
class Counted {
 public:
  explicit Counted(std::string path) : m_path(std::move(path)) {
    const UniqueFd file(open(m_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (ftruncate(file.get(), sizeof(FrameCounts)) != 0) return;
    m_counts = static_cast<FrameCounts*>(
        mmap(nullptr, sizeof(FrameCounts), PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0));
  }
  ~Counted() { munmap(m_counts, sizeof(FrameCounts)); }
  Counted(const Counted&) = delete;
  Counted& operator=(const Counted&) = delete;

  std::map<std::string, std::string> environment(const std::string& runtimeDirectory) const {
    return {{"XDG_RUNTIME_DIR", runtimeDirectory},
            {"LUMSAR_COUNTS_FILE", m_path},
            {"LD_PRELOAD", LUMSAR_COUNTS_PRELOAD}};
  }
  std::uint64_t allocations() const { return m_counts->allocations; }
  std::uint64_t copies() const { return m_counts->copies; }

 private:
  const std::string m_path;
  FrameCounts* m_counts = nullptr;
};

class FrameCost : public testing::Test {
 protected:
  static constexpr int kFrames = 200;

  void start() {
    std::filesystem::create_directory(directory / "lumsar");
    service.emplace(directory / "lumsar/lumsar.sock");
    agent.emplace(
        Process::Words{LUMSAR_BIN "/lumsar-agent", "--listen", socket, "--discard", "--json"},
        ProcessSetup{.environment = inAgent.environment(directory.path())});
    host.emplace(Process::Words{LUMSAR_BIN "/lumsar-host", "--vm", socket, "--exec", "list",
                                "--duration", "1h"},
                 ProcessSetup{.environment = inHost.environment(directory.path())});
    ASSERT_TRUE(host->says("VM answered")) << host->output();
    send(record(CameraDataKind::Announced, 1, announcedBody("front", "Front")));
    ASSERT_TRUE(agent->says("starting it"));
    sendFrames(kFrames / 4);  // after which buffers have grown
  }
  void send(View record) { service->send(message(IPC_MSG_DATA, record)); }
  // None is dropped: each waits until the agent has copied the one before.
  void sendFrames(int count) {
    for (int i = 0; i < count; ++i) {
      const std::uint64_t before = inAgent.copies();
      send(record(CameraDataKind::Frame, 1, frameBody(++sequence, jpeg), cameraClock()));
      ASSERT_TRUE(eventually([&] { return inAgent.copies() > before; })) << agent->output();
    }
  }
  // Of kFrames, a frame, rounded down: what happens once a second does not count.
  template <class Count>
  std::uint64_t perFrame(Count count) {
    const std::uint64_t before = count();
    sendFrames(kFrames);
    return (count() - before) / kFrames;
  }

  const Bytes jpeg = blankJpeg(100'000);
  const TemporaryDirectory directory;
  const std::string socket = "unix:" + (directory / "vm.sock");
  const Counted inAgent{directory / "agent.counts"};
  const Counted inHost{directory / "host.counts"};
  std::uint32_t sequence = 0;
  std::optional<CameraService> service;
  std::optional<Process> agent;
  std::optional<Process> host;
};

TEST_F(FrameCost, AllocatesLittle) {
  start();
  EXPECT_LE(perFrame([this] { return inHost.allocations(); }), kHostAllocations);
  EXPECT_LE(perFrame([this] { return inAgent.allocations(); }), kAgentAllocations);
}

TEST_F(FrameCost, IsCopiedByTheAgentOnly) {
  start();
  EXPECT_LE(perFrame([this] { return inHost.copies(); }), kHostCopies);
  EXPECT_LE(perFrame([this] { return inAgent.copies(); }), kAgentCopies);
  agent->stop(SIGTERM);
  const std::string all = "\"frames\":" + std::to_string(sequence);
  EXPECT_TRUE(agent->says(all)) << agent->output();
}

}  // namespace
}  // namespace lumsar::test
