#include "transport/device_transport.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <termios.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <utility>

#include "base/log.h"

namespace lumsar::agent {
namespace {

// How often to look for a device that is not there or is used: nothing tells of that.
constexpr std::chrono::milliseconds kRetryInterval{200};

// A terminal would change bytes and echo them. False if it is not a terminal.
bool makeRaw(int fd) {
  termios settings{};
  if (tcgetattr(fd, &settings) != 0) return false;
  cfmakeraw(&settings);
  return tcsetattr(fd, TCSANOW, &settings) == 0;
}

bool hasClient(int fd) {
  pollfd device{fd, POLLIN | POLLOUT, 0};
  return poll(&device, 1, 0) >= 0 && (device.revents & (POLLHUP | POLLERR | POLLNVAL)) == 0;
}

}  // namespace

std::optional<std::string> findVirtioPort(const std::string& name,
                                          const std::string& classDirectory,
                                          const std::string& deviceDirectory) {
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(classDirectory, error)) {
    std::string found;
    std::ifstream file(entry.path() / "name");
    if (std::getline(file, found) && found == name) {
      return (std::filesystem::path(deviceDirectory) / entry.path().filename()).string();
    }
  }
  return std::nullopt;
}

DeviceTransport::DeviceTransport(std::function<std::optional<std::string>()> find, std::string what)
    : m_find(std::move(find)), m_what(std::move(what)) {
  base::logInfo("waiting for a host on {}", m_what);
}

bool DeviceTransport::openDevice() {
  const auto path = m_find();
  if (!path) {
    warnOnce(base::text(
        "there is no {} yet; waiting for it. Does the definition of the VM include it?", m_what));
    return false;
  }
  m_device.reset(open(path->c_str(), O_RDWR | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!m_device) {
    const char* advice = errno == EBUSY    ? "another program uses it, stop that one"
                         : errno == EACCES ? "run as root or let this user open it"
                                           : "waiting for it";
    warnOnce(base::text("cannot open {} ({}): {}; {}", m_what, *path, base::systemError(), advice));
    return false;
  }
  m_isTerminal = makeRaw(m_device.get());
  watch();
  m_lastProblem.clear();
  base::logDebug("opened {}", *path);
  return true;
}

void DeviceTransport::watch() {
  m_watch.reset(epoll_create1(EPOLL_CLOEXEC));
  epoll_event changes{.events = EPOLLIN | EPOLLOUT | EPOLLET, .data = {}};
  if (epoll_ctl(m_watch.get(), EPOLL_CTL_ADD, m_device.get(), &changes) != 0) m_watch.reset();
}

std::chrono::steady_clock::time_point DeviceTransport::nextAttempt() const {
  if (m_device && m_watch) return std::chrono::steady_clock::time_point::max();
  return m_lastAttempt + kRetryInterval;
}

void DeviceTransport::warnOnce(const std::string& problem) {
  if (std::exchange(m_lastProblem, problem) != problem) base::logWarning("{}", problem);
}

bool DeviceTransport::attach() {
  m_lastAttempt = std::chrono::steady_clock::now();
  if (!m_device && !openDevice()) return false;
  epoll_event change;
  epoll_wait(m_watch.get(), &change, 1, 0);  // what comes from here on is new
  m_attached = hasClient(m_device.get());
  if (!m_attached && m_isTerminal) m_device.reset();  // a line once hung up stays so
  return m_attached;
}

// A virtio port without a client reads 0 until one comes back; an error means that it was
// unplugged.
ssize_t DeviceTransport::read(std::span<unsigned char> to) {
  const ssize_t got = ::read(m_device.get(), to.data(), to.size());
  if (got > 0) return got;
  if (got < 0 && (errno == EAGAIN || errno == EINTR)) return 0;
  m_attached = false;
  if (got < 0) m_device.reset();
  return -1;
}

ssize_t DeviceTransport::write(std::span<const unsigned char> from) {
  const ssize_t sent = ::write(m_device.get(), from.data(), from.size());
  if (sent >= 0) return sent;
  return errno == EAGAIN || errno == EINTR ? 0 : -1;
}

void DeviceTransport::detach() {
  // When only the client has left, the device stays open for the next one.
  if (m_attached) m_device.reset();
  m_attached = false;
}

}  // namespace lumsar::agent
