// RdpChannel: the static virtual channel "lumsar" inside an RDP client on FreeRDP's library, be it
// lumsar-rdp or any client that loads the add-in. The library calls it on the thread that runs the
// client's loop.
//
//   SendQueue --complete messages--> fragments, at most kBatch in the library --> server
//   Inbox     <--bytes as they come---------------------------------------------------- server
//
// The library's thread reads nothing while it has fragments to write, and a write lasts until the
// network has accepted the bytes. So it gets its next batch only when it has none left, and never
// while it reports that: it would keep writing and serve neither the server nor its own user.
#pragma once

#include <freerdp/svc.h>

#include <functional>
#include <memory>
#include <mutex>
#include <span>

#include "protocol/names.h"
#include "transport/inbox.h"
#include "transport/send_queue.h"

namespace lumsar::host {

class RdpChannel {
 public:
  static constexpr int kBatch = 64;

  RdpChannel(SendQueue& queue, Inbox& inbox) : m_queue(queue), m_inbox(inbox) {}
  RdpChannel(const RdpChannel&) = delete;
  RdpChannel& operator=(const RdpChannel&) = delete;

  // Announces the channel; called inside the add-in's entry function. The object must live until
  // the client has terminated it.
  bool enter(const CHANNEL_ENTRY_POINTS_FREERDP_EX& entry, void* initHandle);

  // Called on the library's thread when the client no longer uses the channel. May destroy
  // this object.
  void setOnTerminated(std::function<void()> action) { m_onTerminated = std::move(action); }

  // Called on the library's thread when there may be something for drain() to do. It must leave
  // that to a time when the library is not calling.
  void setOnCapacity(std::function<void()> action) { m_onCapacity = std::move(action); }

  // Gives the library its next batch if it has done with the last one. Never waits; on any thread,
  // but not while the library calls this object.
  void drain();

 private:
  using Message = std::shared_ptr<SendQueue::Bytes>;
  struct Fragment;

  static void initEvent(void* self, void* handle, UINT event, void* data, UINT size);
  static void openEvent(void* self, DWORD handle, UINT event, void* data, UINT32 size, UINT32 total,
                        UINT32 flags);
  void connected();
  void disconnected();
  void received(std::span<const unsigned char> bytes);
  void writeComplete(Fragment* fragment);

  SendQueue& m_queue;
  Inbox& m_inbox;
  CHANNEL_ENTRY_POINTS_FREERDP_EX m_entry{};
  void* m_initHandle = nullptr;
  std::function<void()> m_onTerminated;
  std::function<void()> m_onCapacity = [] {};

  std::mutex m_mutex;  // guards what follows and keeps the fragments of two messages apart
  DWORD m_openHandle = 0;
  bool m_open = false;
  int m_outstanding = 0;
  Message m_message;  // the one being cut, if any
  std::size_t m_offset = 0;
};

}  // namespace lumsar::host
