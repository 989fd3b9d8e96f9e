// A plug-in that notes the commands it is given and answers "list" with what the test has set.
#include "unit/host/session/fake_plugin.h"

#include <atomic>
#include <stdexcept>
#include <string_view>

#include "lumsar/plugin.h"

#define EXPORTED extern "C" __attribute__((visibility("default")))

namespace {

FakePlugin fake;

std::atomic_ref<int> atomic(int& value) {
  return std::atomic_ref(value);
}

}  // namespace

EXPORTED FakePlugin* fakePlugin() {
  return &fake;
}

EXPORTED int Ctrl(const std::string& command, char* output, int& outputLength) {
  if (fake.throws) throw std::runtime_error("out of luck");
  if (command != R"({"command":"list"})") {
    fake.commands.push_back(command);
    return atomic(fake.status);
  }
  ++atomic(fake.lists);
  if (const int status = atomic(fake.status); status != lumsar::STATUS_OK) return status;
  if (const int status = atomic(fake.listStatus); status != lumsar::STATUS_OK) return status;
  if (fake.listGrowth > 0) {
    --fake.listGrowth;
    fake.list.append(100000, ' ');
  }
  const std::string_view five = "\"framesHere\":5";
  if (const int frames = atomic(fake.frames);
      frames != 0 && fake.list.find(five) != fake.list.npos) {
    fake.list.replace(fake.list.find(five) + five.size() - 1, 1, std::to_string(frames));
  }
  const int room = outputLength;
  outputLength = static_cast<int>(fake.list.size());
  if (outputLength <= room) fake.list.copy(output, fake.list.size());
  return lumsar::STATUS_OK;
}

EXPORTED int Init(const lumsar::SpiceSendFunc&, const lumsar::SpicePostEventFunc& event,
                  const std::string&, const std::string&) {
  fake.event = event;
  ++fake.inits;
  return fake.initStatus;
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
