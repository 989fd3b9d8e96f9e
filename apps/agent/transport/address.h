// Addresses as people write them (unix:PATH, tcp:ADDR:PORT), and sockets that listen on them.
// Called by the program's start. Failures are thrown as Failure, with a text for people.
// No state: reentrant, except that listening on a path changes the umask for a moment.
#ifndef LUMSAR_AGENT_TRANSPORT_ADDRESS_H
#define LUMSAR_AGENT_TRANSPORT_ADDRESS_H

#include <sys/socket.h>

#include <cstdint>
#include <stdexcept>
#include <string>

#include "base/fd.h"

namespace lumsar::agent {

// Something that the user must hear of and that ends the program.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class Address {
 public:
  // Throws Failure when `text` is none. Only numeric addresses and "localhost"; tcp:PORT means
  // the loopback interface.
  static Address parse(const std::string& text);
  static Address loopback(std::uint16_t port);

  bool isUnix() const { return !m_path.empty(); }
  const std::string& path() const { return m_path; }

  // A listening socket, non-blocking. Throws Failure.
  base::UniqueFd listen() const;

 private:
  std::string m_text;
  std::string m_path;
  sockaddr_storage m_storage{};
  socklen_t m_size = 0;
};

// "tcp:127.0.0.1:4711", the address that the socket really has.
std::string localAddress(int socket);

}  // namespace lumsar::agent

#endif
