// Is a real SPICE connection used up by frames that go through host and plug-in? The guest is a
// real one, under emulation. The floor is the same transport, fed with the same messages and
// nothing before it.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <thread>

#include "feeds/transport_feed.h"
#include "integration/vm/support/guest.h"
#include "protocol/names.h"
#include "spice/spice_transport.h"
#include "support/temporary_directory.h"

namespace lumsar::bench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kFrame = 100'000;
constexpr std::uint64_t kTold = 1;  // the guest tells of so many frames at once
constexpr std::uint64_t kWarmUp = 100;
constexpr std::uint64_t kCount = 1500;

// A VM of its own for each measurement: what the one before has left on the line is gone with it.
// Its agent counts the frames.
class Vm {
 public:
  Vm() : m_guest("vm", test::testDirectory(), test::GuestSetup::desktop()) {
    if (!m_guest.boot()) throw std::runtime_error("the guest does not boot");
  }
  std::string address() const { return m_guest.address(); }

  pid_t qemu() { return m_guest.qemu().id(); }
  // What `clock` says passes between frames.
  double timeOfFrame(const Flow& flow, const Stopwatch& clock) {
    m_guest.start("agent", std::string("guest_agent ") + protocol::kSpicePortName +
                               " sink:" + std::to_string(kTold));
    const std::uint64_t first = await(flow, kWarmUp);
    const Millis begin = clock();
    const std::uint64_t last = await(flow, first + kCount);
    return (clock() - begin).count() / static_cast<double>(last - first);
  }

 private:
  static std::uint64_t await(const Flow& flow, std::uint64_t frames) {
    const auto deadline = Clock::now() + std::chrono::minutes(1);
    while (flow.received < frames) {
      if (Clock::now() > deadline) throw std::runtime_error("nothing arrives over SPICE");
      std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    return flow.received;
  }

  test::Guest m_guest;
};

double throughHost(Measured what, std::uint64_t ahead) {
  const test::TemporaryDirectory directory;
  const SharedFlow flow;
  const Child service([&] {
    serveFrames(directory / "lumsar/lumsar.sock",
                {.size = kFrame, .perSecond = 10'000, .ahead = ahead}, *flow);
  });
  Vm vm;
  const test::Process host(
      {LUMSAR_BIN "/lumsar-spice", vm.address(), "--exec", "share bench", "--duration", "1h"},
      {.environment = {{"XDG_RUNTIME_DIR", directory.path()}}});
  return vm.timeOfFrame(*flow, stopwatch(what, {service.id(), host.id(), vm.qemu()}));
}

double throughTransport(Measured what, std::uint64_t ahead) {
  const SharedFlow flow;
  Vm vm;
  const Child sender([&] {
    feedTransport(
        [&](asio::io_context&, host::SendQueue& queue, host::Inbox& inbox) {
          return std::make_unique<host::SpiceTransport>(queue, inbox,
                                                        host::SpiceAddress{.uri = vm.address()});
        },
        {.frame = kFrame, .fragment = kFrame * 2, .ahead = ahead}, *flow);
  });
  return vm.timeOfFrame(*flow, stopwatch(what, {sender.id(), vm.qemu()}));
}

// The guest is made by a script, which starts this program again.
int startWithGuest(int argc, char** argv) {
  std::vector<char*> command{const_cast<char*>(LUMSAR_RUN_VM_TEST), argv[0],
                             const_cast<char*>(LUMSAR_GUEST_AGENT), const_cast<char*>("--")};
  command.insert(command.end(), argv + 1, argv + argc);
  command.push_back(nullptr);
  execv(command[0], command.data());
  std::perror(command[0]);
  return 1;
}

}  // namespace
}  // namespace lumsar::bench

int main(int argc, char** argv) {
  using namespace lumsar::bench;
  const bool listed =
      std::any_of(argv, argv + argc, [](std::string_view word) { return word == "--list"; });
  if (!listed && lumsar::test::testDirectory().empty()) return startWithGuest(argc, argv);
  const Connection connection{"SPICE", throughTransport, throughHost};
  auto rows = rowsOf(connection);
  // How long each takes there, and its report back.
  rows.push_back(connection.row(": the same, one frame at a time", Measured::Time, 1));
  return runRows(argc, argv, rows);
}
