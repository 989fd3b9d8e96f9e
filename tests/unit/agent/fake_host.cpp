// Connections to lumsar-agent. Used by its tests.
#include "unit/agent/fake_host.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>

#include "unit/agent/eventually.h"

namespace lumsar::agent::test {
namespace {

bool readable(int fd) {
  pollfd entry{fd, POLLIN, 0};
  return poll(&entry, 1, 4000) > 0;
}

base::UniqueFd connectOnce(const std::string& address) {
  const bool isUnix = address.starts_with("unix:");
  base::UniqueFd fd(socket(isUnix ? AF_UNIX : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un un{};
  sockaddr_in in{};
  un.sun_family = AF_UNIX;
  in.sin_family = AF_INET;
  if (isUnix) {
    address.copy(un.sun_path, sizeof un.sun_path - 1, 5);
  } else {
    in.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    in.sin_port =
        htons(static_cast<std::uint16_t>(std::stoi(address.substr(address.rfind(':') + 1))));
  }
  const auto* target =
      isUnix ? reinterpret_cast<const sockaddr*>(&un) : reinterpret_cast<const sockaddr*>(&in);
  if (connect(fd.get(), target, isUnix ? sizeof un : sizeof in) != 0) fd.reset();
  return fd;
}

}  // namespace

base::UniqueFd connectTo(const std::string& address) {
  base::UniqueFd fd;
  eventually([&] {
    fd = connectOnce(address);
    return static_cast<bool>(fd);
  });
  return fd;
}

void FakeHost::send(const Message& bytes) {
  Bytes rest(bytes);
  while (!rest.empty()) {
    const ssize_t sent = ::send(m_socket.get(), rest.data(), rest.size(), MSG_NOSIGNAL);
    if (sent <= 0) return;
    rest = rest.subspan(static_cast<std::size_t>(sent));
  }
}

bool FakeHost::fill() {
  if (!m_socket || !readable(m_socket.get())) return false;
  const auto room = m_assembler.prepare(m_assembler.missing());
  const ssize_t got = recv(m_socket.get(), room.data(), room.size(), 0);
  if (got <= 0) return false;
  m_assembler.commit(static_cast<std::size_t>(got));
  return true;
}

Message FakeHost::receive() {
  for (;;) {
    const Bytes message = m_assembler.next();
    if (!message.empty()) return {message.begin(), message.end()};
    if (!fill()) return {};
  }
}

std::optional<Message> FakeHost::receiveRecord(CameraDataKind kind, std::uint32_t camera) {
  for (Message message = receive(); !message.empty(); message = receive()) {
    Bytes rest = Bytes(message).subspan(kHeaderSize);
    if (kindOf(message) != kind || take<CameraDataHeader>(rest)->camera != camera) continue;
    return Message(rest.begin(), rest.end());
  }
  return std::nullopt;
}

bool FakeHost::ended() {
  while (!receive().empty()) {
  }
  return readable(m_socket.get());
}

bool FakeHost::greet(std::uint16_t token) {
  send(hello(token));
  const Message answer = receive();
  return answer.size() == 36 && answer[32] == (token & 0xFFU) && answer[33] == token >> 8U;
}

std::string httpGet(std::uint16_t port, const std::string& path, std::size_t enough) {
  return httpAsk(port, "GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n", enough);
}

std::string httpAsk(std::uint16_t port, const std::string& request, std::size_t enough) {
  const base::UniqueFd fd = connectTo("tcp:127.0.0.1:" + std::to_string(port));
  std::string answer;
  if (::send(fd.get(), request.data(), request.size(), MSG_NOSIGNAL) < 0) return answer;
  std::array<char, 65536> piece;
  while (answer.size() < enough && readable(fd.get())) {
    const ssize_t got = recv(fd.get(), piece.data(), piece.size(), 0);
    if (got <= 0) break;
    answer.append(piece.data(), static_cast<std::size_t>(got));
  }
  return answer;
}

std::string bodyOf(const std::string& answer) {
  const std::size_t end = answer.find("\r\n\r\n");
  return end == std::string::npos ? std::string() : answer.substr(end + 4);
}

}  // namespace lumsar::agent::test
