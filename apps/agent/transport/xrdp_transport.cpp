// A channel of an xrdp session as transport. Owned by a Peer.
// Bound to the channel's thread.
#include "transport/xrdp_transport.h"

#include <dlfcn.h>
#include <poll.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "app/log.h"
#include "lumsar/message.h"
#include "transport/address.h"

namespace lumsar::agent {
namespace {

constexpr char kChannelName[] = "lumsar";
constexpr unsigned kCurrentSession = ~0U;
constexpr int kFileHandle = 1;  // what query() is asked for
// The server hands each write on as it is, in pieces of this size at most.
constexpr std::size_t kMostWritten = 1600;
constexpr std::chrono::seconds kPause{1};
constexpr int kTryMs = 100;

std::vector<std::string> candidates(const std::string& library) {
  if (!library.empty()) return {library};
  return {"libxrdpapi.so.0", "/usr/lib/x86_64-linux-gnu/xrdp/libxrdpapi.so.0",
          "/usr/lib64/xrdp/libxrdpapi.so.0", "/usr/lib/xrdp/libxrdpapi.so.0",
          "/usr/local/lib/xrdp/libxrdpapi.so.0"};
}

template <class Function>
void bind(void* library, const char* symbol, Function& function) {
  void* address = dlsym(library, symbol);
  if (address == nullptr) {
    throw Failure(text("the xrdp library has no ", symbol, "; is it xrdp 0.9 or newer?"));
  }
  function = reinterpret_cast<Function>(address);
}

}  // namespace

XrdpApi loadXrdpApi(const std::string& library) {
  std::string trouble;
  for (const std::string& path : candidates(library)) {
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
      trouble = dlerror();
      continue;
    }
    XrdpApi api;
    bind(handle, "WTSVirtualChannelOpen", api.open);
    bind(handle, "WTSVirtualChannelClose", api.close);
    bind(handle, "WTSVirtualChannelRead", api.read);
    bind(handle, "WTSVirtualChannelWrite", api.write);
    bind(handle, "WTSVirtualChannelQuery", api.query);
    bind(handle, "WTSFreeMemory", api.free);
    return api;
  }
  throw Failure(text("cannot load xrdp's library: ", trouble,
                     "; install xrdp, or say where it is with --xrdp=PATH"));
}

bool XrdpTransport::attach() {
  const auto now = std::chrono::steady_clock::now();
  if (now < m_nextTry) return false;
  m_nextTry = now + kPause;
  if (open() && tryChannel()) {
    m_said = false;
    return true;
  }
  detach();
  if (!m_said) {
    logWarning("xrdp does not open the channel \"", kChannelName,
               "\"; waiting for it. Is a client with cameras connected to this xrdp session, does "
               "xrdp.ini allow the channel, and is DISPLAY set?");
  }
  m_said = true;
  return false;
}

bool XrdpTransport::open() {
  m_channel = m_api.open(nullptr, kCurrentSession, kChannelName);
  if (m_channel == nullptr) return false;
  void* answer = nullptr;
  unsigned size = 0;
  if (m_api.query(m_channel, kFileHandle, &answer, &size) != 0 && answer != nullptr) {
    if (size == sizeof m_descriptor) std::memcpy(&m_descriptor, answer, size);
    m_api.free(answer);
  }
  return m_descriptor >= 0;
}

// In a session without a client the channel opens, too, and is closed when something is written. So
// the first message, which every RDP conversation begins with, is sent from here to try it.
bool XrdpTransport::tryChannel() {
  RedirMsgHeader greeting;
  greeting.type = MSG_CHANNEL_OPENED;
  const auto* bytes = reinterpret_cast<const unsigned char*>(&greeting);
  if (send({bytes, sizeof greeting}) != sizeof greeting) return false;
  m_greetingSent = true;
  pollfd channel{m_descriptor, POLLRDHUP, 0};
  return poll(&channel, 1, kTryMs) == 0;
}

ssize_t XrdpTransport::read(std::span<unsigned char> to) {
  unsigned got = 0;
  const int result = m_api.read(m_channel, 0, reinterpret_cast<char*>(to.data()),
                                static_cast<unsigned>(to.size()), &got);
  return result == 0 ? -1 : static_cast<ssize_t>(got);
}

ssize_t XrdpTransport::write(std::span<const unsigned char> from) {
  if (std::exchange(m_greetingSent, false) && from.size() >= kHeaderSize &&
      readHeader(from.data()).type == MSG_CHANNEL_OPENED) {
    return kHeaderSize;
  }
  return send(from.first(std::min(from.size(), kMostWritten)));
}

ssize_t XrdpTransport::send(std::span<const unsigned char> bytes) {
  unsigned sent = 0;
  const int result = m_api.write(m_channel, reinterpret_cast<const char*>(bytes.data()),
                                 static_cast<unsigned>(bytes.size()), &sent);
  return result == 0 ? -1 : static_cast<ssize_t>(sent);
}

void XrdpTransport::detach() {
  if (m_channel != nullptr) m_api.close(m_channel);
  m_channel = nullptr;
  m_descriptor = -1;
}

}  // namespace lumsar::agent
