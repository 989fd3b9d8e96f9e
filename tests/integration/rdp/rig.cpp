#include "integration/rdp/rig.h"

#include <cstdlib>
#include <filesystem>

namespace lumsar_test {

namespace {

// The HELLO of an RDP host without its token.
constexpr unsigned char kHello[] = {
    0x4D, 0x41, 0x43, 0x56, 0,    0, 0, 0, 4, 0, 0, 0, 0, 0, 0, 0,
    1,    1,    0,    0,    0x13, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
};

}  // namespace

Rig::Rig() {
  std::string name = "/tmp/lumsar-rdp-test-XXXXXX";
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no directory for the test");
  directory = name;
  makeCertificate(directory, "server");
}

Rig::~Rig() {
  if (HasFailure() && host) std::fprintf(stderr, "%s\n", host->output().c_str());
  host.reset();
  server.reset();
  service.reset();
  std::error_code ignored;
  std::filesystem::remove_all(directory, ignored);
}

RdpServerSetup Rig::serverSetup() const {
  return {.socket = path("rdp"),
          .certificate = path("server.crt"),
          .key = path("server.key"),
          .users = {}};
}

void Rig::startService() {
  service.emplace(path("service"));
}

void Rig::startHost(const HostProcess::Words& words, const HostProcess::Variables& variables) {
  HostProcess::Words all{
      LUMSAR_RDP, "unix:" + path("rdp"), "--ipc-library", LUMSAR_TEST_IPC, "--duration",
      "600s",     "--timeout",           "600s",          "--json"};
  all.insert(all.end(), words.begin(), words.end());
  HostProcess::Variables environment{
      {"LUMSAR_TEST_SERVICE", path("service")}, {"HOME", directory}, {"TMPDIR", directory}};
  for (const auto& [name, value] : variables) environment[name] = value;
  host.emplace(all, environment);
}

void Rig::startAll() {
  startService();
  startServer();
  startHost();
  ASSERT_TRUE(server->waitForClient());
}

std::optional<lumsar::HelloMessage> Rig::askForHello() {
  server->send(message(lumsar::MSG_CHANNEL_OPENED));
  const auto bytes = server->messages().nextOf(lumsar::MSG_HELLO);
  if (!bytes || bytes->size() != sizeof(lumsar::HelloMessage)) {
    ADD_FAILURE() << "no HELLO";
    return std::nullopt;
  }
  EXPECT_EQ(Bytes(bytes->begin(), bytes->begin() + sizeof kHello),
            Bytes(std::begin(kHello), std::end(kHello)));
  lumsar::HelloMessage hello;
  std::memcpy(&hello, bytes->data(), sizeof hello);
  EXPECT_LT(hello.payload.token, 10000);
  EXPECT_EQ(hello.payload.vmSession, 0);
  return hello;
}

void Rig::answer(const lumsar::HelloMessage& hello, std::uint32_t capabilities,
                 std::uint16_t session) {
  lumsar::HelloMessage reply;
  reply.header.type = lumsar::MSG_HELLO;
  reply.header.length = sizeof reply.payload;
  reply.header.vmMajor = 1;
  reply.header.vmMinor = 1;
  reply.header.capabilities = capabilities;
  reply.payload = {.token = hello.payload.token, .vmSession = session};
  const auto* bytes = reinterpret_cast<const unsigned char*>(&reply);
  server->send(Bytes(bytes, bytes + sizeof reply));
}

void Rig::greet(std::uint32_t capabilities) {
  const auto hello = askForHello();
  ASSERT_TRUE(hello);
  answer(*hello, capabilities);
  ASSERT_TRUE(service->messages().nextOf(lumsar::IPC_MSG_POLICY));
  if (host) m_peakMemory = host->peakMemory();
}

void Rig::expectGrowthBelow(long kibibytes) const {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  static_cast<void>(kibibytes);  // their own memory says nothing about the host
#else
  EXPECT_LT(host->peakMemory() - m_peakMemory, kibibytes);
#endif
}

void Rig::expectThrough(const Bytes& payload) {
  service->send(message(lumsar::IPC_MSG_DATA, payload));
  const auto arrived = server->messages().nextOf(lumsar::MSG_DATA);
  ASSERT_TRUE(arrived);
  EXPECT_EQ(payloadOf(*arrived), payload);
}

}  // namespace lumsar_test
