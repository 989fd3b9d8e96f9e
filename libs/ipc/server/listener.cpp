// The service's listening socket: see listener.h. Called on the service's main thread at its start
// and end. Two services that start at once are kept apart by a lock on the socket's directory.
#include "ipc/server/listener.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "ipc/channel_path.h"

namespace lumsar::ipc {
namespace {

constexpr int kBacklog = 64;
constexpr int kFirstInherited = 3;

[[noreturn]] void fail(const std::string& what, const std::string& advice) {
  throw std::runtime_error(what + ": " + std::strerror(errno) + "; " + advice);
}

std::string directoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == 0 ? "/" : path.substr(0, slash);
}

// Holds the lock on the directory for as long as the descriptor is open.
base::UniqueFd lockDirectory(const std::string& dir) {
  if (::mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST) {
    fail("cannot make the directory " + dir, "check that its parent exists and is writable");
  }
  base::UniqueFd lock(::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!lock) fail("cannot open the directory " + dir, "it must be this user's own");
  if (::flock(lock.get(), LOCK_EX) != 0) fail("cannot lock " + dir, "try again");
  return lock;
}

// The channel's own directory must be nobody else's.
void makePrivate(const base::UniqueFd& directory, const std::string& dir) {
  struct stat status = {};
  if (::fstat(directory.get(), &status) != 0) fail("cannot examine " + dir, "try again");
  if (status.st_uid != ::geteuid()) {
    throw std::runtime_error("the directory " + dir +
                             " belongs to another user; remove it or choose another channel");
  }
  if ((status.st_mode & 077U) != 0 && ::fchmod(directory.get(), 0700) != 0) {
    fail("cannot make " + dir + " private", "set its mode to 0700");
  }
}

bool someoneListens(const std::string& path) {
  const base::UniqueFd probe(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const sockaddr_un address = socketAddress(path);
  const auto* target = reinterpret_cast<const sockaddr*>(&address);
  return ::connect(probe.get(), target, sizeof address) == 0 || errno == EAGAIN || errno == EACCES;
}

void clearPath(const std::string& path) {
  struct stat status = {};
  if (::lstat(path.c_str(), &status) != 0) return;
  if (!S_ISSOCK(status.st_mode)) {
    throw std::runtime_error(path +
                             " exists and is no socket; remove it or choose another channel");
  }
  if (someoneListens(path)) {
    throw std::runtime_error("a camera service is already running at " + path +
                             "; stop it or choose another --ipc-channel");
  }
  if (::unlink(path.c_str()) != 0) fail("cannot remove the stale socket " + path, "remove it");
}

std::string boundPath(int socket) {
  sockaddr_un address = {};
  socklen_t size = sizeof address;
  if (::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0) return {};
  return address.sun_path;
}

bool isUnixListener(int socket) {
  int listening = 0;
  int domain = 0;
  socklen_t size = sizeof listening;
  return ::getsockopt(socket, SOL_SOCKET, SO_ACCEPTCONN, &listening, &size) == 0 &&
         ::getsockopt(socket, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 && listening != 0 &&
         domain == AF_UNIX;
}

}  // namespace

Listener Listener::at(const std::string& path, Directory directory) {
  const std::string dir = directoryOf(path);
  const base::UniqueFd lock = lockDirectory(dir);
  if (directory == Directory::Own) makePrivate(lock, dir);
  clearPath(path);
  base::UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!socket) fail("cannot make a socket", "close other programs");
  // Before bind, which gives the file this mode: there is no moment in which others may connect.
  if (::fchmod(socket.get(), 0600) != 0) fail("cannot make the socket private", "try again");
  const sockaddr_un address = socketAddress(path);
  if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    fail("cannot bind " + path, "check that its directory exists and is writable");
  }
  Listener listener(std::move(socket), path);
  struct stat status = {};
  if (::stat(path.c_str(), &status) == 0) {
    listener.m_ownsFile = true;
    listener.m_device = status.st_dev;
    listener.m_inode = status.st_ino;
  }
  if (::listen(listener.get(), kBacklog) != 0) fail("cannot listen at " + path, "try again");
  return listener;
}

std::optional<Listener> Listener::inherited() {
  const char* pid = std::getenv("LISTEN_PID");
  const char* count = std::getenv("LISTEN_FDS");
  if (pid == nullptr || count == nullptr) return std::nullopt;
  if (std::to_string(::getpid()) != pid) return std::nullopt;
  if (std::strcmp(count, "1") != 0 || !isUnixListener(kFirstInherited)) {
    throw std::runtime_error("the service manager handed over " + std::string(count) +
                             " descriptors; exactly one listening Unix stream socket was expected");
  }
  ::unsetenv("LISTEN_PID");
  ::unsetenv("LISTEN_FDS");
  ::fcntl(kFirstInherited, F_SETFD, FD_CLOEXEC);
  return Listener(base::UniqueFd(kFirstInherited), boundPath(kFirstInherited));
}

Listener::~Listener() {
  if (!m_socket || !m_ownsFile) return;
  struct stat status = {};
  if (::lstat(m_path.c_str(), &status) != 0) return;
  if (status.st_dev == m_device && status.st_ino == m_inode) ::unlink(m_path.c_str());
}

}  // namespace lumsar::ipc
