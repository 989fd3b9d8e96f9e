// Shuts down this process's connections to one address, so that a library that waits on one of them
// without a timeout sees its end. Called on any thread.
#pragma once

#include <cstdint>
#include <string>

namespace lumsar::host {

// `host` is the absolute path of a Unix socket, or anything else for TCP connections to `port`.
// Connections to another Unix socket of the same file name are shut down as well.
void cutSockets(const std::string& host, std::uint16_t port);

}  // namespace lumsar::host
