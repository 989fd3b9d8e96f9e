#include "feeds/ipc_service.h"

#include <algorithm>
#include <asio/post.hpp>
#include <cstdint>
#include <limits>

#include "base/system/frame_memory.h"
#include "ipc/server/server.h"
#include "lumsar/ipc_transport.h"

namespace lumsar::bench {
namespace {

constexpr protocol::QueueLimits kNoLimits{.frames = std::numeric_limits<std::size_t>::max()};

class Service : public ipc::IpcServerEvents {
 public:
  explicit Service(const std::string& path)
      : m_server(m_io,
                 base::SocketListener::at({path, {}, 0}, base::SocketListener::Directory::Make),
                 *this, {.queue = kNoLimits}) {}
  void run() { m_io.run(); }

  void onClient(ipc::ClientId, const std::string&) override {}
  void onClientGone(ipc::ClientId, const std::string&) override {}
  void onWarning(const std::string&) override {}

 protected:
  asio::io_context m_io{1};
  ipc::IpcServer m_server;
};

class Flood : public Service {
 public:
  Flood(const std::string& path, std::size_t size)
      : Service(path), m_ofHead(std::min(size, kLargestHead)), m_rest(size - m_ofHead) {}

  void onMessage(ipc::ClientId client, std::span<unsigned char>) override { sendMore(client); }

 private:
  // Several at once, as a service that never lets its client wait; the last one to leave asks for
  // the next.
  void sendMore(ipc::ClientId client) {
    constexpr int kAtOnce = 16;
    for (int left = kAtOnce; left > 0; --left) {
      ipc::Outgoing outgoing{protocol::Message(IPC_MSG_DATA, m_ofHead), true};
      outgoing.rest.bytes = m_rest;
      outgoing.message.announceRest(m_rest.size());
      if (left == 1) {
        outgoing.onLeave = [this, client](protocol::Message&) {
          asio::post(m_io, [this, client] { sendMore(client); });
        };
      }
      m_server.send(client, std::move(outgoing));
    }
  }

  // What is larger is sent from where it is, as a camera's frame.
  static constexpr std::size_t kLargestHead = 64;
  const std::size_t m_ofHead;
  const std::vector<unsigned char> m_rest;
};

class Answers : public Service {
 public:
  using Service::Service;

  void onMessage(ipc::ClientId client, std::span<unsigned char> message) override {
    const RedirMsgHeader header = readHeader(message.data());
    if (callNumber(header) == 0) return;
    m_server.reply(client, header, protocol::Message(header.type, header.length));
  }
};

}  // namespace

void floodClient(const std::string& path, std::size_t size) {
  base::keepFrameMemory();
  Flood(path, size).run();
}

void answerCalls(const std::string& path) {
  base::keepFrameMemory();
  Answers(path).run();
}

}  // namespace lumsar::bench
