// Who is at the other end of a connected socket.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace lumsar::base {

struct Peer {
  std::string host;            // numeric; empty for a Unix socket
  bool onThisMachine = false;  // so that the system knows its user
  std::optional<uid_t> user;   // whose socket it is; nothing if that cannot be told
};

Peer peerOf(int socket);

// This process's user, or root, who can do everything anyway.
bool isTrustedUser(const std::optional<uid_t>& user);

}  // namespace lumsar::base
