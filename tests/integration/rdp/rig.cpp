#include "integration/rdp/rig.h"

#include <filesystem>

#include "support/resources.h"

namespace lumsar::test {
namespace {

// The HELLO of an RDP host without its token.
const Bytes kHello{
    0x4D, 0x41, 0x43, 0x56, 0,    0, 0, 0, 4, 0, 0, 0, 0, 0, 0, 0,
    1,    1,    0,    0,    0x13, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
};

}  // namespace

Rig::Rig() {
  makeCertificate(directory.path(), "server");
  std::filesystem::create_directory(path("lumsar"));
  setenv("XDG_RUNTIME_DIR", directory.path().c_str(), 1);
}

void Rig::TearDown() {
  if (!host) return;
  if (host->running()) stopHost();
  if (HasFailure()) std::fprintf(stderr, "%s\n", host->output().c_str());
}

RdpServerSetup Rig::serverSetup() const {
  return {.socket = path("rdp"),
          .certificate = path("server.crt"),
          .key = path("server.key"),
          .users = {}};
}

// On the one channel of an RDP host.
void Rig::startService() {
  service.emplace(path("lumsar/lumsar.sock"));
}

void Rig::startHost(const Process::Words& words, const Variables& variables) {
  Process::Words all{LUMSAR_RDP,      "unix:" + path("rdp"),
                     "--ipc-library", LUMSAR_IPC_LIBRARY,
                     "--duration",    "600s",
                     "--timeout",     "600s",
                     "--json"};
  all.insert(all.end(), words.begin(), words.end());
  Variables environment = variables;
  environment.insert({{"HOME", directory.path()}, {"TMPDIR", directory.path()}});
  host.emplace(all, ProcessSetup{.environment = environment});
}

void Rig::start(const Process::Words& words, const Variables& variables) {
  startService();
  startServer();
  startHost(words, variables);
}

void Rig::beginSession() {
  ASSERT_TRUE(server->waitForClient());
  handshake();
}

void Rig::expectEnd(int status, const std::string& text) {
  EXPECT_EQ(host->wait(), status);
  EXPECT_EQ(host->countOf(text), 1) << host->output();
}

void Rig::expectQuickStop() {
  const auto begin = std::chrono::steady_clock::now();
  stopHost();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, seconds(12));
}

std::optional<HelloPayload> Rig::askForHello() {
  server->send(message(MSG_CHANNEL_OPENED));
  return nextHello();
}

std::optional<HelloPayload> Rig::nextHello() {
  const Bytes bytes = server->messages().nextOf(MSG_HELLO).value_or(Bytes());
  if (bytes.size() != sizeof(HelloMessage)) {
    ADD_FAILURE() << "no HELLO";
    return std::nullopt;
  }
  EXPECT_EQ(Bytes(bytes.begin(), bytes.begin() + kHeaderSize), kHello);
  View payload = View(bytes).subspan(kHeaderSize);
  const auto hello = take<HelloPayload>(payload);
  EXPECT_LT(hello->token, 10000);
  EXPECT_EQ(hello->vmSession, 0);
  return hello;
}

void Rig::answer(const HelloPayload& hello, std::uint32_t capabilities, std::uint16_t session) {
  server->send(helloAnswer({.token = hello.token, .vmSession = session}, capabilities));
}

void Rig::handshake(std::uint32_t capabilities) {
  const auto hello = askForHello();
  ASSERT_TRUE(hello);
  answer(*hello, capabilities);
  ASSERT_TRUE(service->messages().nextOf(IPC_MSG_POLICY));
  if (host) m_peakMemory = host->peakMemory();
}

void Rig::expectGrowthBelow(long kibibytes) const {
  const long growth = host->peakMemory() - m_peakMemory;
  EXPECT_TRUE(kMemoryIsTheSanitizers || growth < kibibytes) << growth;
}

void Rig::expectAtVm(const Bytes& payload) {
  service->send(message(IPC_MSG_DATA, payload));
  const auto arrived = server->messages().nextOf(MSG_DATA);
  ASSERT_TRUE(arrived);
  EXPECT_EQ(payloadOf(*arrived), payload);
}

void Rig::expectAtService(const Bytes& payload) {
  server->send(message(MSG_DATA, payload));
  const auto arrived = service->messages().nextOf(IPC_MSG_DATA);
  ASSERT_TRUE(arrived);
  EXPECT_EQ(payloadOf(*arrived), payload);
}

}  // namespace lumsar::test
