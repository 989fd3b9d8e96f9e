#include "transport/xrdp_transport.h"

#include <poll.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "base/log.h"
#include "base/system/dynamic_library.h"
#include "protocol/message.h"
#include "protocol/names.h"

namespace lumsar::agent {
namespace {

constexpr unsigned kCurrentSession = ~0U;
constexpr int kFileHandle = 1;  // what query() is asked for
// The server passes each write on unchanged, in fragments of at most this size.
constexpr std::size_t kMaxWrite = 1600;
constexpr std::chrono::seconds kRetryInterval{1};
constexpr int kProbeMs = 100;

std::vector<std::string> candidates(const std::string& path) {
  if (!path.empty()) return {path};
  return {"libxrdpapi.so.0", "/usr/lib/x86_64-linux-gnu/xrdp/libxrdpapi.so.0",
          "/usr/lib64/xrdp/libxrdpapi.so.0", "/usr/lib/xrdp/libxrdpapi.so.0",
          "/usr/local/lib/xrdp/libxrdpapi.so.0"};
}

base::DynamicLibrary load(const std::string& given) {
  std::string error;
  for (const std::string& path : candidates(given)) {
    try {
      return base::DynamicLibrary(path);
    } catch (const base::Failure& failure) {
      error = failure.what();
    }
  }
  throw base::Failure(base::text(
      "cannot load xrdp's library: {}; install xrdp, or say where it is with --xrdp=PATH", error));
}

}  // namespace

XrdpApi loadXrdpApi(const std::string& path) {
  const base::DynamicLibrary library = load(path);
  XrdpApi api;
  try {
    library.bind("WTSVirtualChannelOpen", api.open);
    library.bind("WTSVirtualChannelClose", api.close);
    library.bind("WTSVirtualChannelRead", api.read);
    library.bind("WTSVirtualChannelWrite", api.write);
    library.bind("WTSVirtualChannelQuery", api.query);
    library.bind("WTSFreeMemory", api.free);
  } catch (const base::Failure& failure) {
    throw base::Failure(base::text(
        "the xrdp library lacks a function: {}; is it xrdp 0.9 or newer?", failure.what()));
  }
  return api;
}

bool XrdpTransport::attach() {
  const auto now = std::chrono::steady_clock::now();
  if (now < m_nextAttempt) return false;
  m_nextAttempt = now + kRetryInterval;
  if (open() && probeChannel()) {
    m_loggedFailure = false;
    return true;
  }
  detach();
  if (!m_loggedFailure) {
    base::logWarning(
        "xrdp does not open the channel \"{}\"; waiting for it. Is a client with cameras connected "
        "to this xrdp session, does xrdp.ini allow the channel, and is DISPLAY set?",
        protocol::kRdpChannelName);
  }
  m_loggedFailure = true;
  return false;
}

bool XrdpTransport::open() {
  m_channel = m_api.open(nullptr, kCurrentSession, protocol::kRdpChannelName);
  if (m_channel == nullptr) return false;
  void* answer = nullptr;
  unsigned size = 0;
  if (m_api.query(m_channel, kFileHandle, &answer, &size) != 0 && answer != nullptr) {
    if (size == sizeof m_descriptor) std::memcpy(&m_descriptor, answer, size);
    m_api.free(answer);
  }
  return m_descriptor >= 0;
}

// In a session without a client the channel opens as well, and is closed when something is written.
// So the message that begins every handshake over RDP is sent from here, as a probe.
bool XrdpTransport::probeChannel() {
  const protocol::Message opened(MSG_CHANNEL_OPENED);
  if (send(opened.bytes()) != kHeaderSize) return false;
  m_channelOpenedSent = true;
  pollfd channel{m_descriptor, POLLRDHUP, 0};
  return poll(&channel, 1, kProbeMs) == 0;
}

ssize_t XrdpTransport::read(std::span<unsigned char> to) {
  unsigned got = 0;
  const int result = m_api.read(m_channel, 0, reinterpret_cast<char*>(to.data()),
                                static_cast<unsigned>(to.size()), &got);
  return result == 0 ? -1 : static_cast<ssize_t>(got);
}

ssize_t XrdpTransport::write(std::span<const unsigned char> from) {
  if (std::exchange(m_channelOpenedSent, false) && from.size() >= kHeaderSize &&
      readHeader(from.data()).type == MSG_CHANNEL_OPENED) {
    return kHeaderSize;
  }
  return send(from.first(std::min(from.size(), kMaxWrite)));
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
