#include "ipc/channel_path.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "base/net/address.h"
#include "lumsar/ipc_transport.h"

namespace lumsar::ipc {
namespace {

static_assert(kIpcMaxPath == base::kMaxSocketPath);

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
    // No name may lead out of the runtime directory.
    if (path.find('/') != std::string::npos) return {IPC_ERROR_PARAMETER, {}};
    const std::string dir = runtimeDir();
    if (dir.empty()) return {IPC_ERROR_NO_RUNTIME_DIR, {}};
    path = dir + "/lumsar/" + path + ".sock";
  }
  if (path.size() > kIpcMaxPath) return {IPC_ERROR_PATH_TOO_LONG, {}};
  return {0, path, fromName};
}

bool sameUser(int socket) {
  ucred peer = {};
  socklen_t size = sizeof peer;
  if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return false;
  return peer.uid == ::geteuid();
}

}  // namespace lumsar::ipc
