// The callables run on the plug-in's, the IPC library's or the test's thread.
// They copy what they are given, as the plug-in's contract asks of a host.
#include "support/plugin/host_record.h"

#include <chrono>
#include <stdexcept>
#include <utility>

#include "support/eventually.h"

namespace lumsar::test {

HostRecord& HostRecord::instance() {
  // Never destroyed: detached event threads may outlive main.
  static HostRecord& record = *new HostRecord;
  return record;
}

SpiceSendFunc HostRecord::sendFunc() {
  return [this](unsigned char* data, int length) { return send(data, length); };
}

SpicePostEventFunc HostRecord::postEventFunc() {
  return [this](RedirEvent event, char* data, int length) { post(event, data, length); };
}

int HostRecord::rdpSend(unsigned char* data, int length) {
  return instance().send(data, length);
}

int HostRecord::send(unsigned char* data, int length) {
  const std::lock_guard lock(m_mutex);
  m_sent.push_back({{data, data + length}, data, std::this_thread::get_id()});
  m_changed.notify_all();
  if (!sendThrows.empty()) throw std::runtime_error(sendThrows);
  if (sendResults.empty()) return sendResult;
  const int result = sendResults.front();
  sendResults.pop_front();
  return result;
}

void HostRecord::post(int event, const char* data, int length) {
  const std::lock_guard lock(m_mutex);
  Posted posted{event, data != nullptr, length, {}, std::this_thread::get_id()};
  if (data != nullptr) posted.data.assign(data, data + length);
  m_events.push_back(std::move(posted));
  m_changed.notify_all();
  if (!eventThrows.empty()) throw std::runtime_error(eventThrows);
}

std::vector<Sent> HostRecord::takeSent() {
  const std::lock_guard lock(m_mutex);
  return std::exchange(m_sent, {});
}

std::vector<Bytes> HostRecord::takeBytes() {
  std::vector<Bytes> all;
  for (Sent& sent : takeSent()) all.push_back(std::move(sent.bytes));
  return all;
}

std::vector<Posted> HostRecord::takeEvents(std::size_t count) {
  std::unique_lock lock(m_mutex);
  m_changed.wait_for(lock, kTimeout, [&] { return m_events.size() >= count; });
  return std::exchange(m_events, {});
}

}  // namespace lumsar::test
