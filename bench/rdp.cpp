// Is a real RDP connection used up by frames that go through host and plug-in? The floor is the
// same transport, fed with the same fragments and nothing before it.
#include <stdexcept>

#include "feeds/flow.h"
#include "feeds/transport_feed.h"
#include "harness/raw_stream.h"
#include "integration/rdp/rdp_server.h"
#include "rdp/rdp_transport.h"
#include "support/messages.h"
#include "support/process.h"
#include "support/temporary_directory.h"

namespace lumsar::bench {
namespace {

constexpr std::size_t kFrame = 100'000;
constexpr std::size_t kFragment = 1536;
constexpr int kWarmUp = 50;
constexpr int kCount = 1500;

// An RDP server at a socket. Started once all other processes are, as it has a thread.
class Server {
 public:
  void start() {
    test::makeCertificate(m_directory.path(), "server");
    m_server.emplace(test::RdpServerSetup{.socket = address(),
                                          .certificate = m_directory / "server.crt",
                                          .key = m_directory / "server.key",
                                          .users = {}});
  }
  std::string address() const { return m_directory / "rdp"; }
  std::string directory() const { return m_directory.path(); }

  void handshake() {
    if (!m_server->waitForClient()) throw std::runtime_error("no client comes over RDP");
    m_server->send(test::message(MSG_CHANNEL_OPENED));
    const auto hello = next(MSG_HELLO);
    test::View payload = test::View(hello).subspan(kHeaderSize);
    m_server->send(test::helloAnswer({.token = take<HelloPayload>(payload)->token}));
  }
  void startCamera() {
    next(MSG_DATA);  // its announcement
    m_server->send(test::message(MSG_DATA, test::record(CameraDataKind::Start, 1)));
  }
  // What `clock` says passes between the frames of a flood.
  double timeOfFrame(Flow& flow, const Stopwatch& clock) {
    for (int left = kWarmUp; left > 0; --left, ++flow.received) next(MSG_DATA);
    const Millis begin = clock();
    for (int left = kCount; left > 0; --left, ++flow.received) next(MSG_DATA);
    return (clock() - begin).count() / kCount;
  }

 private:
  test::Bytes next(std::uint32_t type) {
    auto message = m_server->messages().nextOf(type);
    if (!message) throw std::runtime_error("nothing arrives over RDP");
    return *std::move(message);
  }

  const test::TemporaryDirectory m_directory;
  std::optional<test::RdpServer> m_server;
};

double throughHost(Measured what, std::uint64_t ahead) {
  Server server;
  const SharedFlow flow;
  const Child service([&] {
    serveFrames(server.directory() + "/lumsar/lumsar.sock",
                {.size = kFrame, .perSecond = 10'000, .ahead = ahead}, *flow);
  });
  const test::Process host(
      {LUMSAR_BIN "/lumsar-rdp", "unix:" + server.address(), "--ignore-certificate", "--exec",
       "share bench", "--duration", "1h"},
      {.environment = {{"XDG_RUNTIME_DIR", server.directory()}, {"HOME", server.directory()}}});
  server.start();
  server.handshake();
  server.startCamera();
  return server.timeOfFrame(*flow, stopwatch(what, {0, service.id(), host.id()}));
}

[[noreturn]] void feedRdp(const std::string& address, std::uint64_t ahead, Flow& flow) {
  host::RdpTarget target;
  target.host = address;
  target.ignoreCertificate = true;
  feedTransport(
      [&](asio::io_context& loop, host::SendQueue& queue, host::Inbox& inbox) {
        return std::make_unique<host::RdpTransport>(loop, queue, inbox, target);
      },
      {.frame = kFrame, .fragment = kFragment, .ahead = ahead}, flow);
}

double throughTransport(Measured what, std::uint64_t ahead) {
  Server server;
  const SharedFlow flow;
  const Child sender([&] { feedRdp(server.address(), ahead, *flow); });
  server.start();
  return server.timeOfFrame(*flow, stopwatch(what, {0, sender.id()}));
}

}  // namespace
}  // namespace lumsar::bench

int main(int argc, char** argv) {
  using namespace lumsar::bench;
  return runRows(argc, argv, rowsOf({"RDP", throughTransport, throughHost}));
}
