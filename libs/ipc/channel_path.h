// From a channel name to the socket's path, and the socket address and user check that both ends
// share. Called by the client library, by the service's listener and by its tools. Thread-safe
// as long as nobody changes the environment.
#ifndef LUMSAR_IPC_CHANNEL_PATH_H
#define LUMSAR_IPC_CHANNEL_PATH_H

#include <sys/un.h>

#include <string>

namespace lumsar::ipc {

struct ChannelPath {
  int error = 0;  // IpcError; `path` is empty then
  std::string path;
  bool fromName = false;  // so its directory is the channels' own
};

// `$XDG_RUNTIME_DIR/lumsar/NAME.sock`; an absolute path is used as it is.
ChannelPath channelPath(const char* name);

// For a path that channelPath() accepted.
sockaddr_un socketAddress(const std::string& path);

// Whether the process at the other end of a connected socket belongs to this process's user.
bool sameUser(int socket);

}  // namespace lumsar::ipc

#endif
