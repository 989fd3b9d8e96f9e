#include "base/net/socket_listener.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <string_view>
#include <thread>

#include "base/text/format.h"

namespace lumsar::base {
namespace {

constexpr int kBacklog = 64;
constexpr int kFirstInherited = 3;

[[noreturn]] void fail(const std::string& what, std::string_view advice) {
  throw Failure(text("{}: {}; {}", what, systemError(), advice));
}

std::string directoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

[[noreturn]] void refuseOthers(const std::string& directory) {
  throw Failure(
      text("the directory {} belongs to another user; remove it or choose another one", directory));
}

// Whoever owns the parent can put another directory in place of this one.
void checkParent(const std::string& directory) {
  const std::string parent = directoryOf(directory);
  struct stat status = {};
  if (stat(parent.c_str(), &status) != 0) return;  // creating the directory says why
  if (status.st_uid != geteuid() && status.st_uid != 0) refuseOthers(parent);
}

// Whoever may read the directory may lock it; one of our own programs does so for a moment only.
void awaitLock(const UniqueFd& lock, const std::string& directory) {
  constexpr std::chrono::seconds kTimeout{5};
  constexpr std::chrono::milliseconds kPause{20};
  const auto deadline = std::chrono::steady_clock::now() + kTimeout;
  while (flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) {
      fail(text("cannot lock {}", directory), "try again");
    }
    if (std::chrono::steady_clock::now() >= deadline) {
      throw Failure(
          text("cannot lock {}: another program has locked it for {} s; end that one, or choose a "
               "directory that only this user can read",
               directory, kTimeout.count()));
    }
    std::this_thread::sleep_for(kPause);
  }
}

// Holds the lock on the directory for as long as the descriptor is open. A private one must not be
// a link: it could lead to any directory, which would then be changed.
UniqueFd lockDirectory(const std::string& directory, bool isPrivate) {
  if (isPrivate) checkParent(directory);
  if (mkdir(directory.c_str(), 0700) != 0 && errno != EEXIST) {
    fail(text("cannot create the directory {}", directory),
         "check that its parent exists and is writable");
  }
  const int noLink = isPrivate ? O_NOFOLLOW : 0;
  UniqueFd lock(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | noLink));
  if (!lock) fail(text("cannot open the directory {}", directory), "it must be this user's own");
  awaitLock(lock, directory);
  return lock;
}

void makePrivate(const UniqueFd& lock, const std::string& directory) {
  struct stat status = {};
  if (fstat(lock.get(), &status) != 0) fail(text("cannot examine {}", directory), "try again");
  if (status.st_uid != geteuid()) refuseOthers(directory);
  if ((status.st_mode & 077U) != 0 && fchmod(lock.get(), 0700) != 0) {
    fail(text("cannot make {} private", directory), "set its mode to 0700");
  }
}

bool isServed(const SocketAddress& address) {
  const UniqueFd probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  return connect(probe.get(), address.get(), address.size) == 0 || errno == EAGAIN ||
         errno == EACCES;
}

void removeStale(const std::string& path, const SocketAddress& address) {
  struct stat status = {};
  if (lstat(path.c_str(), &status) != 0) return;
  if (!S_ISSOCK(status.st_mode)) {
    throw Failure(
        text("cannot listen on {}: a file that is not a socket is there; remove it or "
             "choose another path",
             path));
  }
  if (isServed(address)) {
    throw AddressInUse(
        text("cannot listen on {}: another program serves it; stop that one or "
             "choose another path",
             path));
  }
  if (unlink(path.c_str()) != 0) fail(text("cannot remove the stale socket {}", path), "remove it");
}

bool isUnixListener(int socket) {
  int listening = 0;
  int domain = 0;
  socklen_t size = sizeof listening;
  return getsockopt(socket, SOL_SOCKET, SO_ACCEPTCONN, &listening, &size) == 0 &&
         getsockopt(socket, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 && listening != 0 &&
         domain == AF_UNIX;
}

UniqueFd bound(const Address& address, const SocketAddress& target) {
  UniqueFd result(socket(target.storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!result) fail(text("cannot listen on {}", address.text()), "close other programs");
  const int on = 1;
  setsockopt(result.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  // Before bind, which gives the file this mode: others can connect at no time.
  if (address.isUnix() && fchmod(result.get(), 0600) != 0) {
    fail(text("cannot make the socket {} private", address.path), "try again");
  }
  if (bind(result.get(), target.get(), target.size) == 0) return result;
  if (errno == EADDRINUSE) {
    throw AddressInUse(
        text("cannot listen on {}: {}; stop the program that uses it or choose "
             "another one",
             address.text(), systemError()));
  }
  fail(text("cannot listen on {}", address.text()),
       address.isUnix() ? "check that its directory exists and is writable"
                        : "choose another address or port");
}

}  // namespace

SocketListener SocketListener::at(const Address& address, Directory directory) {
  const SocketAddress target = toSockaddr(address);
  UniqueFd lock;
  if (address.isUnix()) {
    const std::string parent = directoryOf(address.path);
    const bool isPrivate = directory == Directory::MakePrivate;
    if (directory != Directory::AsItIs) lock = lockDirectory(parent, isPrivate);
    if (isPrivate) makePrivate(lock, parent);
    removeStale(address.path, target);
  }
  SocketListener listener(bound(address, target));
  if (address.isUnix()) listener.ownFile();
  if (listen(listener.get(), kBacklog) != 0) {
    fail(text("cannot listen on {}", address.text()), "choose another one");
  }
  return listener;
}

std::optional<SocketListener> SocketListener::inherited() {
  const char* pid = std::getenv("LISTEN_PID");
  const char* count = std::getenv("LISTEN_FDS");
  if (pid == nullptr || count == nullptr) return std::nullopt;
  if (std::to_string(getpid()) != pid) return std::nullopt;
  if (std::string_view(count) != "1" || !isUnixListener(kFirstInherited)) {
    throw Failure(
        text("the service manager handed over {} descriptors; exactly one listening Unix "
             "stream socket was expected",
             count));
  }
  unsetenv("LISTEN_PID");
  unsetenv("LISTEN_FDS");
  fcntl(kFirstInherited, F_SETFD, FD_CLOEXEC);
  return SocketListener(UniqueFd(kFirstInherited));
}

SocketListener::SocketListener(UniqueFd socket)
    : m_socket(std::move(socket)), m_name(localAddress(m_socket.get())) {}

// By its inode, so that a successor's file is never removed.
void SocketListener::ownFile() {
  struct stat status = {};
  if (stat(m_name.c_str(), &status) != 0) return;
  m_ownsFile = true;
  m_device = status.st_dev;
  m_inode = status.st_ino;
}

SocketListener::~SocketListener() {
  if (!m_socket || !m_ownsFile) return;
  struct stat status = {};
  if (lstat(m_name.c_str(), &status) != 0) return;
  if (status.st_dev == m_device && status.st_ino == m_inode) unlink(m_name.c_str());
}

}  // namespace lumsar::base
