// From a channel's name to the path of its socket, and the check of who is at the other end.
#pragma once

#include <string>

namespace lumsar::ipc {

struct ChannelPath {
  int error = 0;  // IpcError; `path` is empty then
  std::string path;
  bool fromName = false;  // so its directory is the channels' own
};

// `$XDG_RUNTIME_DIR/lumsar/NAME.sock`; an absolute path is used as it is.
ChannelPath channelPath(const char* name);

// Whether the process at the other end of a connected socket belongs to this process's user.
bool sameUser(int socket);

}  // namespace lumsar::ipc
