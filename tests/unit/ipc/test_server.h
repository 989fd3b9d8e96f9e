// TestServer: an IpcServer in a thread of its own, which writes down what it is told. Made and
// asked by the test; its events run on the server's thread. Thread-safe.
#pragma once

#include <asio/executor_work_guard.hpp>
#include <asio/post.hpp>
#include <functional>
#include <future>
#include <map>
#include <mutex>
#include <optional>

#include "ipc/server/server.h"
#include "support/eventually.h"
#include "support/messages.h"

namespace lumsar::test {

inline protocol::Message textMessage(std::uint32_t type, std::string_view text,
                                     std::uint32_t param = 0) {
  return {type, {base::bytesOf(text)}, param};
}

class TestServer : private ipc::IpcServerEvents {
 public:
  explicit TestServer(const std::string& path, ipc::ServerLimits limits = {})
      : TestServer(base::SocketListener::at({path, {}, 0}, base::SocketListener::Directory::Make),
                   limits) {}
  explicit TestServer(base::SocketListener listener, ipc::ServerLimits limits = {})
      : m_work(asio::make_work_guard(m_io)) {
    m_server.emplace(m_io, std::move(listener), static_cast<ipc::IpcServerEvents&>(*this), limits);
    m_thread = std::thread([this] { m_io.run(); });
  }
  ~TestServer() override {
    asio::post(m_io, [this] {
      m_server.reset();
      m_work.reset();
    });
    m_thread.join();
  }

  // Called on the server's thread with each message of a client.
  std::function<void(ipc::IpcServer&, ipc::ClientId, std::span<unsigned char>)> duringMessage;

  // Runs `call` on the server's thread and waits for it.
  void run(std::function<void(ipc::IpcServer&)> call) {
    std::promise<void> done;
    asio::post(m_io, [&] {
      call(*m_server);
      done.set_value();
    });
    done.get_future().wait();
  }
  void send(ipc::ClientId client, ipc::Outgoing outgoing) {
    run([&](ipc::IpcServer& server) { server.send(client, std::move(outgoing)); });
  }
  ipc::MessageStream::Counters counters(ipc::ClientId client) {
    ipc::MessageStream::Counters counters;
    run([&](ipc::IpcServer& server) { counters = server.counters(client); });
    return counters;
  }

  std::map<ipc::ClientId, std::string> clients() const { return locked(m_clients); }
  std::vector<Bytes> messages() const { return locked(m_messages); }
  std::vector<std::string> gone() const { return locked(m_gone); }
  std::vector<std::string> warnings() const { return locked(m_warnings); }
  ipc::ClientId awaitClient(std::size_t count = 1) const {
    eventually([&] { return clients().size() >= count; });
    const auto all = clients();
    return all.empty() ? 0 : all.rbegin()->first;
  }
  bool awaitMessages(std::size_t count) const {
    return eventually([&] { return messages().size() >= count; });
  }
  bool awaitGone(std::size_t count = 1) const {
    return eventually([&] { return gone().size() >= count; });
  }
  bool awaitWarning(std::size_t count = 1) const {
    return eventually([&] { return warnings().size() >= count; });
  }

 private:
  void onClient(ipc::ClientId client, const std::string& name) override {
    const std::lock_guard lock(m_mutex);
    m_clients[client] = name;
  }
  void onMessage(ipc::ClientId client, std::span<unsigned char> bytes) override {
    {
      const std::lock_guard lock(m_mutex);
      m_messages.emplace_back(bytes.begin(), bytes.end());
    }
    if (duringMessage) duringMessage(*m_server, client, bytes);
  }
  void onClientGone(ipc::ClientId, const std::string& why) override {
    const std::lock_guard lock(m_mutex);
    m_gone.push_back(why);
  }
  void onWarning(const std::string& text) override {
    const std::lock_guard lock(m_mutex);
    m_warnings.push_back(text);
  }
  template <class T>
  T locked(const T& value) const {
    const std::lock_guard lock(m_mutex);
    return value;
  }

  mutable std::mutex m_mutex;
  std::map<ipc::ClientId, std::string> m_clients;
  std::vector<Bytes> m_messages;
  std::vector<std::string> m_gone;
  std::vector<std::string> m_warnings;
  asio::io_context m_io;
  asio::executor_work_guard<asio::io_context::executor_type> m_work;
  std::optional<ipc::IpcServer> m_server;
  std::thread m_thread;
};

}  // namespace lumsar::test
