#include "rdp/rdp_channel.h"

#include <freerdp/channels/channels.h>

#include <algorithm>
#include <cstring>
#include <exception>

#include "base/text/format.h"
#include "lumsar/message.h"

namespace lumsar::host {

// What the library holds while it writes: the bytes stay where they are.
struct RdpChannel::Fragment {
  Message message;
};

bool RdpChannel::enter(const CHANNEL_ENTRY_POINTS_FREERDP_EX& entry, void* initHandle) {
  m_entry = entry;
  m_initHandle = initHandle;
  CHANNEL_DEF definition{};
  static_assert(sizeof protocol::kRdpChannelName - 1 <= CHANNEL_NAME_LEN);
  std::memcpy(definition.name, protocol::kRdpChannelName, sizeof protocol::kRdpChannelName);
  definition.options = CHANNEL_OPTION_INITIALIZED | CHANNEL_OPTION_ENCRYPT_RDP;
  return m_entry.pVirtualChannelInitEx(this, nullptr, initHandle, &definition, 1,
                                       VIRTUAL_CHANNEL_VERSION_WIN2000,
                                       &RdpChannel::initEvent) == CHANNEL_RC_OK;
}

void RdpChannel::initEvent(void* self, void* /*handle*/, UINT event, void* /*data*/,
                           UINT /*size*/) {
  auto& channel = *static_cast<RdpChannel*>(self);
  try {
    if (event == CHANNEL_EVENT_CONNECTED) channel.connected();
    if (event == CHANNEL_EVENT_DISCONNECTED) channel.disconnected();
    if (event == CHANNEL_EVENT_TERMINATED && channel.m_onTerminated) {
      const auto action = std::move(channel.m_onTerminated);
      action();
    }
  } catch (const std::exception&) {
    // Out of memory: no channel.
  }
}

// The channel must be opened right here: what arrives before that is lost.
void RdpChannel::connected() {
  const UINT16 id =
      freerdp_channels_get_id_by_name(m_entry.context->instance, protocol::kRdpChannelName);
  if (id == 0 || id == 0xFFFF) {
    return m_inbox.unavailable(base::text(
        "the server does not offer the channel \"{}\"; its administrator has to allow it",
        protocol::kRdpChannelName));
  }
  DWORD handle = 0;
  const UINT status = m_entry.pVirtualChannelOpenEx(
      m_initHandle, &handle, const_cast<char*>(protocol::kRdpChannelName), &RdpChannel::openEvent);
  if (status != CHANNEL_RC_OK) {
    return m_inbox.unavailable(
        base::text("the RDP library does not open the channel \"{}\": error {}",
                   protocol::kRdpChannelName, status));
  }
  {
    const std::lock_guard lock(m_mutex);
    m_openHandle = handle;
    m_open = true;
    m_message.reset();
  }
  m_inbox.opened();
  m_onCapacity();
}

void RdpChannel::disconnected() {
  {
    const std::lock_guard lock(m_mutex);
    if (!m_open) return;
    m_open = false;
    m_message.reset();
  }
  m_queue.close();
  m_entry.pVirtualChannelCloseEx(m_initHandle, m_openHandle);
  m_inbox.closed("the connection to the server has ended");
}

void RdpChannel::openEvent(void* self, DWORD /*handle*/, UINT event, void* data, UINT32 size,
                           UINT32 /*total*/, UINT32 /*flags*/) {
  auto& channel = *static_cast<RdpChannel*>(self);
  try {
    switch (event) {
      case CHANNEL_EVENT_DATA_RECEIVED:
        return channel.received({static_cast<const unsigned char*>(data), size});
      case CHANNEL_EVENT_WRITE_COMPLETE:  // also after a write that failed
      case CHANNEL_EVENT_WRITE_CANCELLED:
        return channel.writeComplete(static_cast<Fragment*>(data));
      default:
        return;
    }
  } catch (const std::exception&) {
    // Out of memory: these bytes are lost, and the stream resynchronises at the next message.
  }
}

// The chunks' first and last flags belong to single writes, not to our messages.
void RdpChannel::received(std::span<const unsigned char> bytes) {
  {
    // A client that connects again reports bytes before it reports the connection.
    const std::lock_guard lock(m_mutex);
    if (!m_open) return;
  }
  m_inbox.received(bytes);
}

void RdpChannel::writeComplete(Fragment* fragment) {
  const std::unique_ptr<Fragment> done(fragment);
  {
    const std::lock_guard lock(m_mutex);
    if (--m_outstanding > 0) return;
  }
  m_onCapacity();
}

void RdpChannel::drain() {
  const std::lock_guard lock(m_mutex);
  if (m_outstanding > 0) return;
  while (m_open && m_outstanding < kBatch) {
    if (!m_message) {
      auto next = m_queue.pop();
      if (!next) return;
      m_message = std::make_shared<SendQueue::Bytes>(std::move(*next));
      m_offset = 0;
    }
    const std::size_t size = std::min<std::size_t>(kRdpFragmentSize, m_message->size() - m_offset);
    auto fragment = std::make_unique<Fragment>(Fragment{m_message});
    const UINT status =
        m_entry.pVirtualChannelWriteEx(m_initHandle, m_openHandle, m_message->data() + m_offset,
                                       static_cast<ULONG>(size), fragment.get());
    if (status != CHANNEL_RC_OK) return;  // going down, or out of memory: the next call tries again
    static_cast<void>(fragment.release());  // the library's, until writeComplete()
    ++m_outstanding;
    m_offset += size;
    if (m_offset == m_message->size()) m_message.reset();
  }
}

}  // namespace lumsar::host
