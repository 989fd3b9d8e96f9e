// A listening socket: made at an address, or inherited from a service manager.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "base/errors.h"
#include "base/net/address.h"
#include "base/system/fd.h"

namespace lumsar::base {

// Another program serves the address.
class AddressInUse : public Failure {
 public:
  using Failure::Failure;
};

// Non-blocking. The file of a Unix socket is removed with the object, unless a successor's is there
// by then; one that was inherited stays.
class SocketListener {
 public:
  // What to do about a Unix socket's directory. Where it is made, a lock on it keeps apart two
  // programs that start at once.
  enum class Directory { AsItIs, Make, MakePrivate };

  // Replaces a stale socket; refuses one that is served and any other file. Only this
  // user can connect to a Unix socket. Throws Failure.
  static SocketListener at(const Address& address, Directory directory = Directory::AsItIs);
  // The one that a service manager hands over (LISTEN_FDS, LISTEN_PID), if it does. Throws Failure
  // unless it is exactly one listening Unix socket.
  static std::optional<SocketListener> inherited();

  SocketListener(SocketListener&&) = default;
  SocketListener& operator=(SocketListener&&) = delete;
  ~SocketListener();

  int get() const { return m_socket.get(); }
  // As localAddress().
  const std::string& name() const { return m_name; }

 private:
  explicit SocketListener(UniqueFd socket);
  void ownFile();

  UniqueFd m_socket;
  std::string m_name;
  bool m_ownsFile = false;
  dev_t m_device = 0;
  ino_t m_inode = 0;
};

}  // namespace lumsar::base
