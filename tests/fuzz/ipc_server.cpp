// The camera service's end of the transport: what a client sends from its first byte on. The
// messages that the service is told of are those of the stream, however it is cut.
#include "ipc/server/server.h"

#include <sys/socket.h>

#include "base/system/temporary_directory.h"
#include "fuzz/complete_messages.h"
#include "fuzz/input.h"
#include "lumsar/ipc_transport.h"

namespace {

using namespace lumsar;
using fuzz::require;

class Service : private ipc::IpcServerEvents {
 public:
  // What the service is told of a client that sends `stream` in pieces of this size and leaves.
  fuzz::Messages receive(fuzz::Bytes stream, std::size_t piece) {
    m_messages.clear();
    m_accepted = m_ended = false;
    base::UniqueFd client(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const auto address = base::toSockaddr({m_server.path(), {}, 0});
    require(::connect(client.get(), address.get(), address.size) == 0, "the service listens");
    while (!stream.empty()) {
      const auto next = stream.first(std::min(piece, stream.size()));
      stream = stream.subspan(next.size());
      // The service may have hung up.
      static_cast<void>(::send(client.get(), next.data(), next.size(), MSG_NOSIGNAL));
      m_io.poll();
    }
    ::shutdown(client.get(), SHUT_WR);
    while (!m_ended) m_io.run_one();
    return m_messages;
  }
  bool accepted() const { return m_accepted; }

 private:
  void onClient(ipc::ClientId /*client*/, const std::string& name) override {
    require(!m_accepted, "a client is accepted once");
    m_accepted = true;
    m_messages.emplace_back(name.begin(), name.end());
  }
  void onMessage(ipc::ClientId client, std::span<unsigned char> message) override {
    m_messages.emplace_back(message.begin(), message.end());
    const RedirMsgHeader header = readHeader(message.data());
    if (callNumber(header) != 0) m_server.reply(client, header, protocol::Message(header.type));
  }
  void onClientGone(ipc::ClientId /*client*/, const std::string& /*why*/) override {
    m_ended = true;
  }
  void onWarning(const std::string& /*text*/) override { m_ended = true; }

  base::TemporaryDirectory m_directory;
  asio::io_context m_io;
  fuzz::Messages m_messages;
  bool m_accepted = false;
  bool m_ended = false;
  ipc::IpcServer m_server{m_io, base::SocketListener::at({m_directory / "s", {}, 0}), *this};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  static Service service;
  fuzz::Input input(data, size);
  const std::size_t piece = 1U + input.byte();
  const auto stream = input.rest();
  const auto told = service.receive(stream, piece);
  if (!service.accepted()) {
    require(told.empty(), "nothing comes of a client that is not accepted");
    return 0;
  }
  auto sent = fuzz::completeMessages(stream);
  require(readHeader(sent.at(0).data()).type == IPC_MSG_CONNECT_REQUEST, "it asked for it");
  sent[0].erase(sent[0].begin(), sent[0].begin() + kHeaderSize);
  require(told == sent, "the service is told of the stream's messages");
  return 0;
}
