// The service's listening socket: made at a path, or inherited from a service manager. Called once
// at the service's start, on its main thread. Failures are std::runtime_error with a text for the
// user.
#ifndef LUMSAR_IPC_SERVER_LISTENER_H
#define LUMSAR_IPC_SERVER_LISTENER_H

#include <sys/types.h>

#include <optional>
#include <string>

#include "base/fd.h"

namespace lumsar::ipc {

// A listening socket and, where this process made it, its file, which is removed with the object.
class Listener {
 public:
  // Whose the socket's directory is: the channel's own is made private, one that the user chose is
  // left as it is.
  enum class Directory { Own, Chosen };

  // Listens at `path` with a socket of mode 0600. Makes the directory where there is none. Replaces
  // a socket that nobody listens to; refuses where a service is running.
  static Listener at(const std::string& path, Directory directory = Directory::Chosen);
  // The socket that a service manager hands over (LISTEN_FDS, LISTEN_PID), if it does.
  static std::optional<Listener> inherited();

  Listener(Listener&&) = default;
  Listener& operator=(Listener&&) = delete;
  ~Listener();

  int get() const { return m_socket.get(); }
  const std::string& path() const { return m_path; }

 private:
  Listener(base::UniqueFd socket, std::string path)
      : m_socket(std::move(socket)), m_path(std::move(path)) {}

  base::UniqueFd m_socket;
  std::string m_path;
  bool m_ownsFile = false;
  dev_t m_device = 0;  // of the file, so that a successor's is never removed
  ino_t m_inode = 0;
};

}  // namespace lumsar::ipc

#endif
