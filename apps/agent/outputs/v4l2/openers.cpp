#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <filesystem>
#include <system_error>

#include "outputs/v4l2/video_system.h"

namespace lumsar::agent {
namespace {

namespace fs = std::filesystem;

bool sameFile(const struct stat& one, const struct stat& other) {
  if (S_ISCHR(one.st_mode)) return S_ISCHR(other.st_mode) && one.st_rdev == other.st_rdev;
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

// Following a link in /proc can hang on a dead network disk, so only likely ones are followed. In a
// container or a chroot a device has its name, but below another directory.
bool isLikely(const fs::path& target, const fs::path& path) {
  return target.filename() == path.filename() ||
         (target.native().starts_with("/dev/") && path.native().starts_with("/dev/"));
}

bool hasOpen(const fs::path& process, const std::string& path, const struct stat& device,
             bool& incomplete) {
  std::error_code error;
  fs::directory_iterator files(process / "fd", error);
  if (error) {
    incomplete = incomplete || error == std::errc::permission_denied;
    return false;
  }
  for (; !error && files != fs::directory_iterator(); files.increment(error)) {
    std::error_code unreadable;
    const fs::path target = fs::read_symlink(files->path(), unreadable);
    struct stat found = {};
    if (unreadable || !isLikely(target, path)) continue;
    if (stat(files->path().c_str(), &found) == 0 && sameFile(device, found)) return true;
  }
  return false;
}

}  // namespace

// The loopback module of Debian 12 (0.12.7) tells its writer nothing about readers: neither by an
// event nor by a file in /sys. So inotify says when to check, and /proc says who they are.
int countOpeners(const std::string& path, bool& incomplete) {
  struct stat device = {};
  if (stat(path.c_str(), &device) != 0) return 0;
  const std::string own = std::to_string(getpid());
  int openers = 0;
  std::error_code error;
  fs::directory_iterator processes("/proc", error);
  for (; !error && processes != fs::directory_iterator(); processes.increment(error)) {
    const std::string name = processes->path().filename();
    const bool isProcess = std::ranges::all_of(
        name, [](char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; });
    if (isProcess && name != own && hasOpen(processes->path(), path, device, incomplete)) ++openers;
  }
  return openers;
}

}  // namespace lumsar::agent
