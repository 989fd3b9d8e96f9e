// Channel names and paths: see channel_path.h. Called by both ends of the transport on any thread.
// Names are checked here once, so that no name can lead out of the runtime directory.
#include "ipc/channel_path.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "lumsar/ipc_transport.h"

namespace lumsar::ipc {
namespace {

std::string runtimeDir() {
  const char* fromEnvironment = std::getenv("XDG_RUNTIME_DIR");
  if (fromEnvironment != nullptr && fromEnvironment[0] == '/') return fromEnvironment;
  std::string usual = "/run/user/" + std::to_string(::geteuid());
  struct stat status = {};
  if (::stat(usual.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) return usual;
  return {};
}

}  // namespace

ChannelPath channelPath(const char* name) {
  if (name == nullptr || name[0] == '\0') return {IPC_ERROR_PARAMETER, {}};
  std::string path = name;
  const bool fromName = path.front() != '/';
  if (fromName) {
    if (path.find('/') != std::string::npos) return {IPC_ERROR_PARAMETER, {}};
    const std::string dir = runtimeDir();
    if (dir.empty()) return {IPC_ERROR_NO_RUNTIME_DIR, {}};
    path = dir + "/lumsar/" + path + ".sock";
  }
  if (path.size() > kIpcMaxPath) return {IPC_ERROR_PATH_TOO_LONG, {}};
  return {0, path, fromName};
}

sockaddr_un socketAddress(const std::string& path) {
  sockaddr_un address = {};
  static_assert(sizeof address.sun_path == kIpcMaxPath + 1);
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  return address;
}

bool sameUser(int socket) {
  ucred peer = {};
  socklen_t size = sizeof peer;
  if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return false;
  return peer.uid == ::geteuid();
}

}  // namespace lumsar::ipc
