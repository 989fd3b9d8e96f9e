// Recorder: the four callbacks of a client, written down with their threads. The callbacks run on
// the library's threads, the questions are asked by the test. Thread-safe.
#pragma once

#include <functional>
#include <mutex>

#include "lumsar/vdi_ipc.h"
#include "support/eventually.h"
#include "support/messages.h"

namespace lumsar::test {

class Recorder {
 public:
  explicit Recorder(const std::string& name = "vm-7") {
    m_params.onConnect = [](int id, void* self) { return of(self).connected(id); };
    m_params.onSend = [](int, void* self) { return of(self).sent(); };
    m_params.onReceive = [](int, unsigned char* data, int length, void* self) {
      return of(self).received(data, length);
    };
    m_params.onClose = [](int, int error, void* self) { return of(self).closed(error); };
    m_params.userData = this;
    name.copy(m_params.clientName, kClientNameSize);  // without a terminator where it is as long
  }

  IpcClientParams* params() { return &m_params; }

  // Whether messages are written down.
  bool keep = true;
  // Called inside the callback, on the library's thread.
  std::function<void()> duringConnect;
  std::function<void(unsigned char* data, int length)> duringReceive;
  std::function<void(int error)> duringClose;

  int connects() const { return locked(m_connects); }
  int sends() const { return locked(m_sends); }
  std::vector<int> closes() const { return locked(m_closes); }
  std::vector<Bytes> messages() const { return locked(m_messages); }
  std::size_t messageCount() const {
    const std::lock_guard lock(m_mutex);
    return m_messages.size();
  }
  std::thread::id thread() const { return locked(m_thread); }
  std::chrono::steady_clock::time_point closeTime() const { return locked(m_closeTime); }

  bool awaitConnect(int count = 1) const {
    return eventually([&] { return connects() >= count; });
  }
  bool awaitClose(std::size_t count = 1) const {
    return eventually([&] { return closes().size() >= count; });
  }
  bool awaitMessages(std::size_t count) const {
    return eventually([&] { return messageCount() >= count; });
  }

 private:
  static Recorder& of(void* self) { return *static_cast<Recorder*>(self); }
  template <class T>
  T locked(const T& value) const {
    const std::lock_guard lock(m_mutex);
    return value;
  }

  int connected(int) {
    {
      const std::lock_guard lock(m_mutex);
      ++m_connects;
      m_thread = std::this_thread::get_id();
    }
    if (duringConnect) duringConnect();
    return 0;
  }
  int sent() {
    const std::lock_guard lock(m_mutex);
    ++m_sends;
    return 0;
  }
  int received(unsigned char* data, int length) {
    if (duringReceive) duringReceive(data, length);
    const std::lock_guard lock(m_mutex);
    if (keep) m_messages.emplace_back(data, data + length);
    return 0;
  }
  int closed(int error) {
    {
      const std::lock_guard lock(m_mutex);
      m_closes.push_back(error);
      m_closeTime = std::chrono::steady_clock::now();
    }
    if (duringClose) duringClose(error);
    return 0;
  }

  IpcClientParams m_params;
  mutable std::mutex m_mutex;
  int m_connects = 0;
  int m_sends = 0;
  std::vector<int> m_closes;
  std::vector<Bytes> m_messages;
  std::thread::id m_thread;
  std::chrono::steady_clock::time_point m_closeTime;
};

}  // namespace lumsar::test
