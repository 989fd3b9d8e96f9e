#include "ipc/client/pending_calls.h"

#include <cstring>

#include "base/text/bytes.h"
#include "lumsar/ipc_transport.h"
#include "lumsar/vdi_ipc.h"

namespace lumsar::ipc {

std::uint64_t PendingCalls::add(Call& call) {
  const std::lock_guard lock(m_mutex);
  const std::uint64_t number = ++m_last;
  m_calls[number] = &call;
  if (m_failed != 0) {
    call.result = m_failed;
    call.done = true;
  }
  return number;
}

int PendingCalls::wait(std::uint64_t number, Call& call, std::chrono::milliseconds timeout) {
  std::unique_lock lock(m_mutex);
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  const bool done = m_changed.wait_until(lock, deadline, [&call] { return call.done; });
  m_calls.erase(number);
  return done ? call.result : IPC_ERROR_REPLY_TIMEOUT;
}

void PendingCalls::forget(std::uint64_t number) {
  const std::lock_guard lock(m_mutex);
  m_calls.erase(number);
}

void PendingCalls::complete(std::uint64_t number, std::span<const unsigned char> reply) {
  {
    const std::lock_guard lock(m_mutex);
    if (!take(number, reply)) return;
  }
  m_changed.notify_all();  // whoever is woken finds the lock free
}

bool PendingCalls::take(std::uint64_t number, std::span<const unsigned char> reply) {
  const auto found = m_calls.find(number);
  if (found == m_calls.end() || found->second->done) return false;
  Call& call = *found->second;
  call.size = reply.size();
  call.result = reply.size() <= call.capacity ? 0 : kIpcReplyTooLarge;
  if (call.result == 0) {
    base::copyBytes(reply, call.reply);
    // The number is the transport's business; the caller sees the header as the service meant it.
    std::memset(call.reply + offsetof(RedirMsgHeader, reserved), 0, sizeof number);
  }
  return call.done = true;
}

void PendingCalls::fail(int error) {
  const std::lock_guard lock(m_mutex);
  m_failed = error;
  for (auto& [number, call] : m_calls) {
    if (call->done) continue;
    call->result = error;
    call->done = true;
  }
  m_changed.notify_all();
}

}  // namespace lumsar::ipc
