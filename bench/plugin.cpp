// What does a message cost inside the plug-in: a frame on its way to the VM, for both kinds of
// host, the VM's data on their way to the camera service, and each command? Host and IPC library do
// nothing here; the floor is a bare call of what the plug-in has to call, with the bytes that it
// has to make.
#include <sys/mman.h>

#include <QLoggingCategory>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "harness/child.h"
#include "harness/instructions.h"
#include "harness/micro.h"
#include "harness/raw_stream.h"
#include "lumsar/plugin.h"
#include "support/ipc_stub/stub.h"

namespace lumsar::bench {
namespace {

using Buffer = std::vector<unsigned char>;

constexpr std::size_t kFragment = 1536;
constexpr std::string_view kReply = R"({"list":[]})";

test::IpcTable table;
IpcClientParams* client = nullptr;

[[gnu::noinline]] int sendNothing(void*, const unsigned char* data, int length) {
  benchmark::DoNotOptimize(data);
  return length > 0 ? 0 : 1;
}

int replyWithList(void*, const unsigned char*, unsigned int, unsigned char* reply,
                  unsigned int* length) {
  const Buffer header = messageOf(kReply.size(), IPC_MSG_CAMERA_LIST);
  *length = static_cast<unsigned int>(kHeaderSize + kReply.size());
  std::memcpy(reply, header.data(), kHeaderSize);
  std::memcpy(reply + kHeaderSize, kReply.data(), kReply.size());
  return 0;
}

void publishIpcLibrary() {
  table.create = [](IpcClientParams* params) -> void* { return client = params; };
  table.destroy = [](void*) {};
  table.connect = [](void*, const char*) { return 0; };
  table.asyncConnect = table.connect;
  table.disconnect = [](void*) { return 0; };
  table.isConnected = [](void*) { return true; };
  table.sendData = sendNothing;
  table.syncCall = replyWithList;
  char digits[17] = {};
  std::to_chars(digits, digits + 16, reinterpret_cast<std::uintptr_t>(&table), 16);
  setenv(test::kIpcTableVariable, digits, 1);
}

[[gnu::noinline]] int takeFromPlugin(unsigned char* data, int length) {
  benchmark::DoNotOptimize(data);
  return length > 0 ? 0 : 1;
}

enum class Kind { Spice, Rdp };

// A session of its own for each measurement, with an open channel.
class Session {
 public:
  explicit Session(Kind kind) : m_plugin(LUMSAR_PLUGIN), m_kind(kind) {
    kind == Kind::Spice ? startSpice() : startRdp();
  }
  ~Session() { m_kind == Kind::Spice ? m_plugin.DeInit() : m_plugin.RdpDeInit(); }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  void toVm(Buffer& data) const {
    data[offsetof(RedirMsgHeader, type)] = IPC_MSG_DATA;  // the plug-in makes it the VM's type
    client->onReceive(0, data.data(), static_cast<int>(data.size()), client->userData);
  }
  void toService(Buffer& data) const {
    m_plugin.Handler(data.data(), static_cast<int>(data.size()));
  }
  void command(const std::string& json) {
    m_answer[0] = 0;
    int size = static_cast<int>(m_answer.size());
    benchmark::DoNotOptimize(m_plugin.Ctrl(json, m_answer.data(), size));
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
    Buffer opened = messageOf(0, MSG_CHANNEL_OPENED);
    toService(opened);
  }

  const Plugin m_plugin;
  const Kind m_kind;
  std::vector<char> m_answer = std::vector<char>(65536);
};

enum class Logging { Off, On };

std::shared_ptr<Session> newSession(Kind kind, Logging logging = Logging::Off) {
  const bool on = logging == Logging::On;
  QLoggingCategory::setFilterRules(on ? QStringLiteral("*=true") : QStringLiteral("*=false"));
  return std::make_shared<Session>(kind);
}
constexpr auto kNothing = [] { return std::make_shared<int>(); };

// Both in processor time and in instructions.
template <class Floor, class Begin, class Here>
std::vector<Row> both(const std::string& name, Floor floor, Begin begin, Here here) {
  return {{name, "ns CPU", repeated(kNothing, floor), repeated(begin, here)},
          {name + ", instructions", "instr.", counted(kNothing, floor), counted(begin, here),
           kNoLimit, 1}};
}

std::vector<Row> relayed(std::size_t size) {
  auto frame = std::make_shared<Buffer>(messageOf(size, IPC_MSG_DATA));
  const SpiceSendFunc send = takeFromPlugin;
  return both(
      "plug-in: frame of " + std::to_string(size) + " B, one buffer",
      [=](int) {
        (*frame)[offsetof(RedirMsgHeader, type)] = IPC_MSG_DATA;
        send(frame->data(), static_cast<int>(frame->size()));
      },
      [] { return newSession(Kind::Spice); }, [=](Session& session) { session.toVm(*frame); });
}

void sendInFragments(RdpSendFunc send, Buffer& data) {
  for (std::size_t done = 0; done < data.size(); done += kFragment) {
    send(data.data() + done, static_cast<int>(std::min(kFragment, data.size() - done)));
  }
}

std::vector<Row> fragmented(std::size_t size) {
  auto frame = std::make_shared<Buffer>(messageOf(size, IPC_MSG_DATA));
  return both(
      "plug-in: frame of " + std::to_string(size) + " B, in fragments",
      [=](int) { sendInFragments(takeFromPlugin, *frame); }, [] { return newSession(Kind::Rdp); },
      [=](Session& session) { session.toVm(*frame); });
}

// One copy, in a buffer of its own.
void sendCopy(const Buffer& data) {
  const auto copy = std::make_unique_for_overwrite<unsigned char[]>(data.size());
  std::memcpy(copy.get(), data.data(), data.size());
  table.sendData(nullptr, copy.get(), static_cast<int>(data.size()));
}

std::vector<Row> handled(std::size_t size) {
  auto data = std::make_shared<Buffer>(messageOf(size, MSG_DATA));
  return both(
      "plug-in: Handler, " + std::to_string(size) + " B", [=](int) { sendCopy(*data); },
      [] { return newSession(Kind::Spice); }, [=](Session& session) { session.toService(*data); });
}

Row commanded(const std::string& name, const std::string& json, Logging logging) {
  const Buffer request = messageOf(json.size(), IPC_MSG_SHARE);
  return {"plug-in: " + name + (logging == Logging::On ? ", logged" : ""), "ns CPU",
          repeated(kNothing, [=](int) { sendCopy(request); }),
          repeated([=] { return newSession(Kind::Spice, logging); },
                   [=](Session& session) { session.command(json); })};
}

// In a process that has not loaded it yet.
double loadAndInit() {
  using Clock = std::chrono::steady_clock;
  void* memory =
      mmap(nullptr, sizeof(double), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  auto& micros = *static_cast<double*>(memory);
  Child([&] {
    const auto begin = Clock::now();
    newSession(Kind::Spice);
    micros = std::chrono::duration<double, std::micro>(Clock::now() - begin).count();
  }).wait();
  const double result = micros;
  munmap(memory, sizeof(double));
  return result;
}

std::vector<Row> rows() {
  // Loading comes first, while this process has not loaded it either.
  std::vector<Row> all{{"plug-in: dlopen, Init, DeInit", "us", {}, loadAndInit}};
  for (const auto& pair : {relayed(1024), relayed(100'000), fragmented(1024), fragmented(100'000),
                           handled(64), handled(100'000)}) {
    all.insert(all.end(), pair.begin(), pair.end());
  }
  const std::vector<std::pair<std::string, std::string>> commands{
      {"list", R"({"command":"list"})"},
      {"share", R"({"command":"share","deviceId":"1"})"},
      {"unshare", R"({"command":"unshare","deviceId":"1"})"},
      {"unshareall", R"({"command":"unshareall"})"},
      {"setpolicy", R"({"command":"setpolicy","policy":[]})"}};
  for (const Logging logging : {Logging::Off, Logging::On}) {
    for (const auto& [name, json] : commands) all.push_back(commanded(name, json, logging));
  }
  return all;
}

}  // namespace
}  // namespace lumsar::bench

int main(int argc, char** argv) {
  qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
  lumsar::bench::publishIpcLibrary();
  // An RDP host's IPC library lies below the working directory.
  std::filesystem::current_path(LUMSAR_IPC_DIRECTORY "/..");
  return lumsar::bench::runRows(argc, argv, lumsar::bench::rows());
}
