// What does a message cost inside the plug-in: a frame on its way to the VM, for both kinds of
// host, and the VM's data on their way to the camera service? Host and IPC library do nothing here.
#include <benchmark/benchmark.h>

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <vector>

#include "lumsar/message.h"
#include "lumsar/plugin.h"
#include "support/ipc_stub/stub.h"

namespace {

using namespace lumsar;

lumsar::test::IpcTable table;
IpcClientParams* client = nullptr;

void publishIpcLibrary() {
  table.create = [](IpcClientParams* params) -> void* { return client = params; };
  table.destroy = [](void*) {};
  table.connect = [](void*, const char*) { return 0; };
  table.asyncConnect = table.connect;
  table.disconnect = [](void*) { return 0; };
  table.isConnected = [](void*) { return true; };
  table.sendData = [](void*, const unsigned char*, int) { return 0; };
  table.syncCall = [](void*, const unsigned char*, unsigned int, unsigned char*, unsigned int*) {
    return 0;
  };
  char digits[17] = {};
  std::to_chars(digits, digits + 16, reinterpret_cast<std::uintptr_t>(&table), 16);
  setenv(lumsar::test::kIpcTableVariable, digits, 1);
}

std::vector<unsigned char> message(std::uint32_t type, std::size_t payload) {
  RedirMsgHeader header;
  header.type = type;
  header.length = static_cast<std::uint32_t>(payload);
  std::vector<unsigned char> bytes(kHeaderSize + payload, 0x5A);
  std::memcpy(bytes.data(), &header, sizeof header);
  return bytes;
}

int takeFromPlugin(unsigned char* data, int length) {
  benchmark::DoNotOptimize(data);
  return length > 0 ? 0 : 1;
}

// A session of its own for each measurement, with an open channel.
class Session {
 public:
  explicit Session(bool spice) : m_plugin(LUMSAR_PLUGIN), m_spice(spice) {
    spice ? startSpice() : startRdp();
  }
  ~Session() { m_spice ? m_plugin.DeInit() : m_plugin.RdpDeInit(); }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  int toVm(std::vector<unsigned char>& data) const {
    data[offsetof(RedirMsgHeader, type)] = IPC_MSG_DATA;  // the plug-in makes it the VM's type
    return client->onReceive(0, data.data(), static_cast<int>(data.size()), client->userData);
  }
  void toService(std::vector<unsigned char>& data) const {
    m_plugin.Handler(data.data(), static_cast<int>(data.size()));
  }

 private:
  void startSpice() const {
    m_plugin.Init(
        takeFromPlugin, [](RedirEvent, char*, int) {}, "vm",
        R"({"ipc_name":"bench","relative_path":")" LUMSAR_IPC_DIRECTORY R"("})");
    m_plugin.Event(CHANNEL_EVENT_OPENED);
  }
  void startRdp() const {
    m_plugin.RdpInit("vm", takeFromPlugin);
    m_plugin.RdpEvent(CHANNEL_EVENT_OPENED);
    auto opened = message(MSG_CHANNEL_OPENED, 0);
    toService(opened);
  }

  Plugin m_plugin;
  bool m_spice;
};

void frameToVm(benchmark::State& state, bool spice) {
  const Session session(spice);
  auto frame = message(IPC_MSG_DATA, static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    if (session.toVm(frame) != 0) state.SkipWithError("the plug-in did not send the frame");
  }
}

void dataToService(benchmark::State& state) {
  const Session session(true);
  auto data = message(MSG_DATA, static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) session.toService(data);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(data.size()));
}

}  // namespace

int main(int argc, char** argv) {
  setenv("QT_LOGGING_RULES", "*=false", 1);
  publishIpcLibrary();
  // An RDP host's IPC library lies below the working directory.
  std::filesystem::current_path(LUMSAR_IPC_DIRECTORY "/..");
  benchmark::RegisterBenchmark("frame to a SPICE VM", frameToVm, true)->Range(1 << 10, 4 << 20);
  benchmark::RegisterBenchmark("frame to an RDP VM", frameToVm, false)->Range(1 << 10, 4 << 20);
  benchmark::RegisterBenchmark("data to the service", dataToService)->Range(64, 64 << 10);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  benchmark::RunSpecifiedBenchmarks();
}
