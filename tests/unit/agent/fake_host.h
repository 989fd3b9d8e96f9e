// The other side: a connection to lumsar-agent as a host or a camera service has it, and a plain
// browser. Used by the tests of lumsar-agent; each object on one thread.
#ifndef LUMSAR_TESTS_UNIT_AGENT_FAKE_HOST_H
#define LUMSAR_TESTS_UNIT_AGENT_FAKE_HOST_H

#include <optional>
#include <string>

#include "base/fd.h"
#include "lumsar/assembler.h"
#include "unit/agent/wire.h"

namespace lumsar::agent::test {

// "unix:PATH" or "tcp:127.0.0.1:PORT"; tries for a while.
base::UniqueFd connectTo(const std::string& address);

class FakeHost {
 public:
  explicit FakeHost(const std::string& address) : m_socket(connectTo(address)) {}

  bool connected() const { return static_cast<bool>(m_socket); }
  void send(const Message& bytes);
  // The next message; empty when none comes within four seconds or the connection has ended.
  Message receive();
  // Receives until a record of this kind comes, and gives its body.
  std::optional<Message> receiveRecord(CameraDataKind kind, std::uint32_t camera);
  // True when the other side has closed.
  bool ended();
  void leave() { m_socket.reset(); }
  // HELLO and its answer.
  bool greet(std::uint16_t token = 1);

 private:
  bool fill();

  base::UniqueFd m_socket;
  MessageAssembler m_assembler;
};

// One GET on 127.0.0.1; the whole answer up to its end or `enough` bytes of it.
std::string httpGet(std::uint16_t port, const std::string& path, std::size_t enough = SIZE_MAX);
// The same with the request's text.
std::string httpAsk(std::uint16_t port, const std::string& request, std::size_t enough = SIZE_MAX);
std::string bodyOf(const std::string& answer);

}  // namespace lumsar::agent::test

#endif
