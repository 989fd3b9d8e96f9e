// The plug-in's Handler and OnReceive: messages of a VM and of the camera service in any order,
// while a host opens and closes its channel. Their lengths are true, which the plug-in relies on;
// built with LUMSAR_CHECK_LENGTHS it gets any.
//
// Input: steps, each a byte that says which, then what the step needs.
#include <QJsonDocument>
#include <QJsonObject>
#include <chrono>
#include <condition_variable>
#include <mutex>

#include "core/exports.h"
#include "core/lengths.h"
#include "core/lumsar.h"
#include "fuzz/input.h"
#include "support/eventually.h"
#include "support/messages.h"
#include "support/resources.h"

namespace {

using namespace lumsar;
using fuzz::Input;
using fuzz::require;
using test::View;

// Where events arrive, on the plug-in's threads.
class Events {
 public:
  void add(RedirEvent event, const char* data, int length) {
    if (event == REDIR_EVENT_IPC_CLOSED) return;  // comes without a thread
    const std::lock_guard lock(m_mutex);
    m_data.assign(data, data + length);
    ++m_count;
    m_changed.notify_all();
  }
  // Waits for the one event that must come.
  std::string awaitOne() {
    std::unique_lock lock(m_mutex);
    const bool came =
        m_changed.wait_for(lock, std::chrono::seconds(20), [this] { return m_count > 0; });
    require(came && m_count == 1, "one event for one message");
    m_count = 0;
    return m_data;
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::string m_data;
  int m_count = 0;
};

struct World {
  Events events;
  bool connected = true;
  test::Bytes message;      // being handled
  test::Bytes sentToVm;     // since the step began
  bool sameAddress = true;  // what went to the VM is where it came from
};
World world;

bool isJsonObject(View text) {
  const auto* data = reinterpret_cast<const char*>(text.data());
  const QByteArray bytes(data, static_cast<int>(text.size()));
  return QJsonDocument::fromJson(bytes).isObject();
}

int sendToService(void*, const unsigned char* data, int length) {
  const View message(data, static_cast<std::size_t>(length));
  require(message.size() >= kHeaderSize, "a message to the service has a header");
  const RedirMsgHeader header = readHeader(data);
  const View payload = message.subspan(kHeaderSize);
  require(header.magic == kMagic && header.length == payload.size(), "its header is true");
  switch (header.type) {
    case IPC_MSG_DATA:
      require(std::ranges::equal(payload, View(world.message).subspan(kHeaderSize, payload.size())),
              "the service gets the VM's bytes");
      break;
    case IPC_MSG_POLICY:
      require(!payload.empty() && payload.back() == 0, "a policy ends with a zero byte");
      require(isJsonObject(payload.first(payload.size() - 1)), "a policy is JSON");
      break;
    case IPC_MSG_REDIRECT_ALL:
      require(isJsonObject(payload), "the command is JSON");
      break;
    default:
      require(header.type == IPC_MSG_UNSHARE_ALL && payload.empty(), "nothing else is sent");
  }
  return world.connected ? STATUS_OK : STATUS_NOT_CONNECTED;
}

int sendToVm(unsigned char* data, int length) {
  world.sameAddress = world.sameAddress && data == world.message.data() + world.sentToVm.size();
  world.sentToVm.insert(world.sentToVm.end(), data, data + length);
  return length;
}

int sendFragment(unsigned char* data, int length) {
  require(length > 0 && length <= kRdpFragmentSize, "a fragment has its size");
  return sendToVm(data, length);
}

void postEvent(RedirEvent event, char* data, int length) {
  world.events.add(event, data, length);
}

Lumsar& object() {
  static Lumsar* const self = [] {
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    Lumsar* made = Lumsar::GetInstance();
    made->m_ipcClient = &world;
    made->m_initialized = true;
    made->m_ipcClientSendData = sendToService;
    made->m_isIpcClientConnected = [](void*) { return world.connected; };
    made->m_spiceSendFunc = sendToVm;
    made->m_spicePostEventFunc = postEvent;
    made->m_rdpSendFunc = sendFragment;
    made->m_rdpPostEventFunc = postEvent;
    made->SetConfigAndPolicy(made->m_defaultConfig);
    return made;
  }();
  return *self;
}

// The next message: most have the magic number, and a length that is true unless it is checked.
test::Bytes nextMessage(Input& input) {
  const bool magic = input.byte() != 0xFF;
  const View bytes = input.piece();
  test::Bytes message(bytes.begin(), bytes.end());
  if (!kCheckLengths) {
    message.resize(std::max(message.size(), sizeof(HelloMessage)));
    const auto length = static_cast<std::uint32_t>(message.size() - kHeaderSize);
    std::memcpy(message.data() + offsetof(RedirMsgHeader, length), &length, sizeof length);
  }
  if (magic && message.size() >= sizeof kMagic) {
    std::memcpy(message.data(), &kMagic, sizeof kMagic);
  }
  message.shrink_to_fit();  // a sanitizer sees a read behind it
  return message;
}

bool isWhole(View message, bool hello) {
  if (message.size() < kHeaderSize) return false;
  const std::size_t least = hello ? sizeof(HelloPayload) : 0;
  const std::size_t payload = std::max<std::size_t>(readHeader(message.data()).length, least);
  return readHeader(message.data()).magic == kMagic && message.size() - kHeaderSize >= payload;
}

bool raisesReady(View message) {
  if (!isWhole(message, true)) return false;
  HelloMessage hello;
  std::memcpy(&hello, message.data(), sizeof hello);
  return hello.header.type == MSG_HELLO && hello.payload.token == object().m_token &&
         world.connected && (hello.header.capabilities & CAP_SHARE_ALL) == 0;
}

void fromVm(Input& input) {
  world.message = nextMessage(input);
  const bool ready = raisesReady(world.message);
  Handler(world.message.data(), static_cast<int>(world.message.size()));
  if (ready) require(world.events.awaitOne().empty(), "the event has no data");
}

void fromService(Input& input) {
  world.message = nextMessage(input);
  const test::Bytes before = world.message;
  const bool open = object().m_channelOpened;
  const int status =
      Lumsar::OnReceive(1, world.message.data(), static_cast<int>(world.message.size()), &object());
  if (!isWhole(before, false)) return require(status != STATUS_OK, "it is refused");
  const RedirMsgHeader header = readHeader(before.data());
  if (header.type == IPC_MSG_DEVICE_CHANGE) {
    const auto payload = View(before).subspan(kHeaderSize, header.length);
    require(world.events.awaitOne() == test::textOf(payload), "the event holds the payload");
  } else if (header.type == IPC_MSG_DATA && open) {
    require(world.sameAddress && world.sentToVm == world.message, "the VM gets the same bytes");
    require(readHeader(world.message.data()).type == MSG_DATA, "of the channel's type");
  } else {
    require(world.sentToVm.empty() && status != STATUS_OK, "nothing else reaches the VM");
  }
}

void step(Input& input) {
  world.sentToVm.clear();
  world.sameAddress = true;
  Lumsar& self = object();
  switch (input.byte() % 8) {
    case 0:
    case 1:
      return fromVm(input);
    case 2:
    case 3:
      return fromService(input);
    case 4:
      return input.byte() % 2 == 0 ? Event(input.byte() % 3) : RdpEvent(input.byte() % 3);
    case 5:
      world.connected = input.byte() % 2 == 0;
      self.m_dataChannel = input.byte() % 4;  // 0 and 2 exist
      // Events are posted nowhere else.
      if (self.m_dataChannel % 2 != 0) self.m_dataChannel = DATA_CHANNEL_SPICE;
      return;
    case 6:
      self.m_token = input.byte();
      return;
    default:
      Lumsar::OnClose(1, input.byte(), &self);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  object().m_channelOpened = false;
  object().m_token = 0;
  object().m_dataChannel = DATA_CHANNEL_SPICE;
  world.connected = true;
  static const std::size_t atRest = test::threadsAtRest();
  for (Input input(data, size); !input.empty();) step(input);
  // What a thread still holds after its event would be taken for a leak.
  require(test::eventually([] { return test::threads() <= atRest; }), "events end");
  return 0;
}
