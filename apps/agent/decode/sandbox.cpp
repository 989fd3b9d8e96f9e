#include "decode/sandbox.h"

#include <grp.h>
#include <seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <memory>

#include "base/errors.h"
#include "base/text/format.h"

namespace lumsar::agent {
namespace {

constexpr uid_t kNobody = 65534;
// Two of the largest images and those that libavcodec keeps; less than what the units allow the
// agent.
constexpr rlim_t kMaxData = rlim_t{320} << 20U;

constexpr std::array kAllowed = {
    // its work
    SCMP_SYS(futex), SCMP_SYS(clock_gettime), SCMP_SYS(restart_syscall), SCMP_SYS(rt_sigreturn),
    SCMP_SYS(exit_group), SCMP_SYS(exit),
    // memory
    SCMP_SYS(brk), SCMP_SYS(munmap), SCMP_SYS(mremap), SCMP_SYS(madvise),
    // what libraries ask before they begin
    SCMP_SYS(sched_getaffinity), SCMP_SYS(getrandom),
    // to end by a signal of its own
    SCMP_SYS(rt_sigprocmask), SCMP_SYS(getpid), SCMP_SYS(gettid)};

// What drivers of graphics devices do as well. One that does more is ended for it.
constexpr std::array kAllowedWithGraphics = {SCMP_SYS(poll), SCMP_SYS(sched_yield),
                                             SCMP_SYS(clock_nanosleep)};
// The types of their requests: graphics devices, buffers, sync files.
constexpr std::array kGraphicsRequests = {'d', 'b', '>'};

// A call that is allowed only with this argument.
struct Restricted {
  int call;
  scmp_arg_cmp argument;
};

void check(bool done, const char* what) {
  if (!done) throw base::Failure(base::text("cannot {}: {}", what, base::systemError()));
}

void dropRoot() {
  if (geteuid() != 0) return;
  check(setgroups(0, nullptr) == 0 && setresgid(kNobody, kNobody, kNobody) == 0 &&
            setresuid(kNobody, kNobody, kNobody) == 0,
        "become the user nobody");
}

void limit(__rlimit_resource resource, rlim_t value) {
  const rlimit both{value, value};
  check(setrlimit(resource, &both) == 0, "limit itself");
}

struct Release {
  void operator()(void* filter) const { seccomp_release(filter); }
};

void filterCalls(int socket, Devices devices) {
  const auto only = [](unsigned index, auto value) {
    return scmp_arg_cmp{index, SCMP_CMP_EQ, static_cast<scmp_datum_t>(value), 0};
  };
  const scmp_arg_cmp noCode = {2, SCMP_CMP_MASKED_EQ, PROT_EXEC, 0};
  const std::array<Restricted, 5> restricted = {{{SCMP_SYS(read), only(0, socket)},
                                                 {SCMP_SYS(write), only(0, socket)},
                                                 {SCMP_SYS(tgkill), only(0, getpid())},
                                                 {SCMP_SYS(mmap), noCode},
                                                 {SCMP_SYS(mprotect), noCode}}};
  const std::unique_ptr<void, Release> filter(seccomp_init(SCMP_ACT_KILL_PROCESS));
  int result = filter ? 0 : -ENOMEM;
  const auto allow = [&](const auto& calls) {
    for (const int call : calls) {
      if (result == 0) result = seccomp_rule_add(filter.get(), SCMP_ACT_ALLOW, call, 0);
    }
  };
  allow(kAllowed);
  if (devices == Devices::Graphics) {
    allow(kAllowedWithGraphics);
    for (const char type : kGraphicsRequests) {
      const scmp_arg_cmp request = {1, SCMP_CMP_MASKED_EQ, 0xFF00,
                                    static_cast<scmp_datum_t>(type) << 8U};
      if (result != 0) break;
      result = seccomp_rule_add_array(filter.get(), SCMP_ACT_ALLOW, SCMP_SYS(ioctl), 1, &request);
    }
  }
  // For the threads that a driver has started, too.
  if (result == 0) result = seccomp_attr_set(filter.get(), SCMP_FLTATR_CTL_TSYNC, 1);
  for (const auto& [call, argument] : restricted) {
    if (result != 0) break;
    result = seccomp_rule_add_array(filter.get(), SCMP_ACT_ALLOW, call, 1, &argument);
  }
  if (result == 0) result = seccomp_load(filter.get());
  errno = -result;
  check(result == 0, "install the system call filter");
}

}  // namespace

void enterSandbox(int socket, Devices devices) {
  check(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0, "give up new privileges");
  dropRoot();
  check(prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) == 0, "protect its memory from other processes");
  check(prctl(PR_SET_PDEATHSIG, SIGKILL) == 0, "end with the agent");
  limit(RLIMIT_DATA, kMaxData);
  limit(RLIMIT_CORE, 0);
  filterCalls(socket, devices);
}

}  // namespace lumsar::agent
