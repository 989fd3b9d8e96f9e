// A plug-in that notes the commands it is given and answers "list" with what the test has set.
#include "unit/host/session/fake_plugin.h"

#include <cstring>
#include <stdexcept>

#include "lumsar/plugin.h"

#define EXPORTED extern "C" __attribute__((visibility("default")))

namespace {

FakePlugin fake;

}  // namespace

EXPORTED FakePlugin* fakePlugin() {
  return &fake;
}

EXPORTED int Ctrl(const std::string& command, char* output, int& outputLength) {
  if (fake.throws) throw std::runtime_error("out of luck");
  if (command != R"({"command":"list"})") {
    fake.commands.push_back(command);
    return fake.status;
  }
  if (fake.status != lumsar::STATUS_OK) return fake.status;
  if (fake.listStatus != lumsar::STATUS_OK) return fake.listStatus;
  if (fake.listGrowth > 0) {
    --fake.listGrowth;
    fake.list.append(100000, ' ');
  }
  const int room = outputLength;
  outputLength = static_cast<int>(fake.list.size());
  if (outputLength <= room) std::memcpy(output, fake.list.data(), fake.list.size());
  return lumsar::STATUS_OK;
}

EXPORTED int Init(const lumsar::SpiceSendFunc&, const lumsar::SpicePostEventFunc&,
                  const std::string&, const std::string&) {
  return lumsar::STATUS_OK;
}
EXPORTED void Event(int) {}
EXPORTED void DeInit() {}
EXPORTED int RdpInit(const char*, lumsar::RdpSendFunc) {
  return lumsar::STATUS_OK;
}
EXPORTED void RdpEvent(int) {}
EXPORTED void Handler(unsigned char* data, int length) {
  fake.handled.emplace_back(reinterpret_cast<const char*>(data), static_cast<std::size_t>(length));
}
EXPORTED int ShareAll(int session) {
  fake.commands.push_back("all " + std::to_string(session));
  return lumsar::STATUS_OK;
}
EXPORTED void RdpDeInit() {}
