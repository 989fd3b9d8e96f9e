#include "base/system/files.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace lumsar::base {
namespace {

template <class Put>
bool putAll(Bytes bytes, Put put) {
  while (!bytes.empty()) {
    const ssize_t done = put(bytes);
    if (done < 0 && errno == EINTR) continue;
    if (done == 0) errno = ENOSPC;
    if (done <= 0) return false;
    bytes = bytes.subspan(static_cast<std::size_t>(done));
  }
  return true;
}

}  // namespace

bool writeAll(int fd, Bytes bytes) {
  return putAll(bytes, [fd](Bytes rest) { return write(fd, rest.data(), rest.size()); });
}

bool sendAll(int socket, Bytes bytes) {
  return putAll(
      bytes, [socket](Bytes rest) { return send(socket, rest.data(), rest.size(), MSG_NOSIGNAL); });
}

UniqueFd openForWriting(const std::string& path) {
  UniqueFd file(open(path.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
  struct stat status {};
  if (!file || fstat(file.get(), &status) != 0) return UniqueFd();
  if (status.st_uid != geteuid()) {
    errno = EPERM;
    return UniqueFd();
  }
  if (S_ISREG(status.st_mode) && ftruncate(file.get(), 0) != 0) return UniqueFd();
  return file;
}

bool replaceFile(const std::string& path, Bytes content) {
  const std::string part = path + ".part";
  unlink(part.c_str());  // whatever is there: a link must not be followed, nor a file be shared
  const UniqueFd file(open(part.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!file) return false;
  if (writeAll(file.get(), content) && rename(part.c_str(), path.c_str()) == 0) return true;
  const int error = errno;
  unlink(part.c_str());
  errno = error;
  return false;
}

std::string userConfigFile(const std::string& name) {
  const auto variable = [](const char* variableName) {
    const char* value = std::getenv(variableName);
    return std::string(value != nullptr ? value : "");
  };
  std::string directory = variable("XDG_CONFIG_HOME");
  if (directory.empty() && !variable("HOME").empty()) directory = variable("HOME") + "/.config";
  return directory.empty() ? "" : directory + "/lumsar/" + name;
}

}  // namespace lumsar::base
