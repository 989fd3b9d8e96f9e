#include "faults/fault.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <fstream>

#include "base/errors.h"
#include "base/text/format.h"
#include "faults/orders.h"

namespace lumsar::test {
namespace {

using std::chrono::seconds;

constexpr std::int64_t kHour = 3600;
constexpr milliseconds kLimitLasts{1000};
constexpr const char* kDiskSize = "size=4m";

std::string procFile(Chain& chain, Part part, const char* name) {
  return base::text("/proc/{}/{}", chain.of(part).id(), name);
}

// The limit of the running process, nothing of what it has is taken away.
void limit(Chain& chain, Part part, __rlimit_resource resource, rlim_t value) {
  rlimit current{};
  const pid_t process = chain.of(part).id();
  if (prlimit(process, resource, nullptr, &current) != 0) return;
  current.rlim_cur = std::min(value, current.rlim_max);
  prlimit(process, resource, &current, nullptr);
}

void noMoreDescriptors(Chain& chain, Part part) {
  const std::string directory = procFile(chain, part, "fd/");
  rlim_t lowestFree = 0;
  while (faccessat(AT_FDCWD, (directory + std::to_string(lowestFree)).c_str(), F_OK,
                   AT_SYMLINK_NOFOLLOW) == 0) {
    ++lowestFree;
  }
  limit(chain, part, RLIMIT_NOFILE, lowestFree);
}

void noMoreMemory(Chain& chain, Part part) {
  std::ifstream sizes(procFile(chain, part, "statm"));
  rlim_t pages = 0;
  sizes >> pages;
  limit(chain, part, RLIMIT_AS, pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)));
}

void lift(Chain& chain, Part part) {
  limit(chain, part, RLIMIT_NOFILE, RLIM_INFINITY);
  limit(chain, part, RLIMIT_AS, RLIM_INFINITY);
}

std::string ordersOf(const Chain& chain, Part part) {
  return base::text("{}/{}.faults", chain.directory(), nameOf(part));
}

void order(const Chain& chain, Part part, const Orders& orders) {
  // In place, as the program has it mapped.
  const UniqueFd file(open(ordersOf(chain, part).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  if (pwrite(file.get(), &orders, sizeof orders, 0) != sizeof orders) perror("orders");
}

void fillDisk(Chain& chain, Part /*part*/) {
  std::ofstream file(chain.disk() + "/filling", std::ios::binary);
  const std::string block(4096, 'x');
  while (file.write(block.data(), static_cast<std::streamsize>(block.size())).flush()) {
  }
}

void kill(Chain& chain, Part part) {
  chain.of(part).stop(SIGKILL);
}
void hang(Chain& chain, Part part) {
  chain.of(part).signal(SIGSTOP);
}
void goOn(Chain& chain, Part part) {
  chain.of(part).signal(SIGCONT);
}
void refuseThreads(Chain& chain, Part part) {
  order(chain, part, {.refuseThreads = true});
}
void allowThreads(Chain& chain, Part part) {
  order(chain, part, {});
}
void clockForward(Chain& chain, Part part) {
  order(chain, part, {.clockOffset = kHour});
}
void clockBack(Chain& chain, Part part) {
  order(chain, part, {.clockOffset = -kHour});
}
void emptyDisk(Chain& chain, Part /*part*/) {
  std::filesystem::remove(chain.disk() + "/filling");
}
// A process that has ended is started again in any case; a clock stays where it is.
void nothing(Chain& /*chain*/, Part /*part*/) {}

}  // namespace

const std::vector<Fault>& faults() {
  static const std::vector<Part> all(kParts.begin(), kParts.end());
  static const std::vector<Part> programs{Part::Service, Part::Host, Part::Agent};
  static const std::vector<Fault> table{
      {"SIGKILL", all, kill, {}, nothing},
      {"SIGSTOP for 5 s", all, hang, seconds(5), goOn},
      {"no more descriptors", programs, noMoreDescriptors, kLimitLasts, lift},
      {"no more memory", programs, noMoreMemory, kLimitLasts, lift, false, false, true},
      {"full disk", {Part::Agent}, fillDisk, kLimitLasts, emptyDisk, true},
      {"no more threads", programs, refuseThreads, kLimitLasts, allowThreads, false, true},
      {"clock +1 h", programs, clockForward, {}, nothing, false, true},
      {"clock -1 h", programs, clockBack, {}, nothing, false, true},
  };
  return table;
}

void prepareOrders(const Chain& chain) {
  for (const Part part : kParts) order(chain, part, {});
}

std::string prepareMounts() {
  const uid_t user = getuid();
  if (unshare(CLONE_NEWNS) != 0) {
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return base::systemError();
    std::ofstream("/proc/self/uid_map") << user << ' ' << user << " 1\n";
  }
  if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return base::systemError();
  const TemporaryDirectory trial;
  if (mount("none", trial.path().c_str(), "tmpfs", 0, kDiskSize) != 0) return base::systemError();
  umount2(trial.path().c_str(), MNT_DETACH);
  return {};
}

SmallDisk::SmallDisk(const Chain& chain) : m_path(chain.disk()) {
  if (mount("none", m_path.c_str(), "tmpfs", 0, kDiskSize) != 0) perror("mount");
}

SmallDisk::~SmallDisk() {
  umount2(m_path.c_str(), MNT_DETACH);
}

}  // namespace lumsar::test
