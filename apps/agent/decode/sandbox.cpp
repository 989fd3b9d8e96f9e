#include "decode/sandbox.h"

#include <grp.h>
#include <seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <memory>

#include "base/errors.h"
#include "base/text/format.h"

namespace lumsar::agent {
namespace {

constexpr uid_t kNobody = 65534;
// The two largest images, libavcodec's copies of them, and the program.
constexpr rlim_t kAddressSpace = rlim_t{1} << 30U;

constexpr std::array kAllowed = {
    // its work
    SCMP_SYS(read), SCMP_SYS(write), SCMP_SYS(futex), SCMP_SYS(clock_gettime),
    SCMP_SYS(restart_syscall), SCMP_SYS(rt_sigreturn), SCMP_SYS(exit_group), SCMP_SYS(exit),
    // memory
    SCMP_SYS(brk), SCMP_SYS(munmap), SCMP_SYS(mremap), SCMP_SYS(madvise),
    // what libraries ask before they begin
    SCMP_SYS(sched_getaffinity), SCMP_SYS(getrandom),
    // to end by a signal of its own
    SCMP_SYS(rt_sigprocmask), SCMP_SYS(getpid), SCMP_SYS(gettid), SCMP_SYS(tgkill)};

// Allowed as well, but not for code.
constexpr std::array kAllowedForData = {SCMP_SYS(mmap), SCMP_SYS(mprotect)};

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

void forbidCalls() {
  const std::unique_ptr<void, Release> filter(seccomp_init(SCMP_ACT_KILL_PROCESS));
  int result = filter ? 0 : -ENOMEM;
  for (const int call : kAllowed) {
    if (result == 0) result = seccomp_rule_add(filter.get(), SCMP_ACT_ALLOW, call, 0);
  }
  for (const int call : kAllowedForData) {
    const scmp_arg_cmp noCode = {2, SCMP_CMP_MASKED_EQ, PROT_EXEC, 0};
    if (result == 0) {
      result = seccomp_rule_add_array(filter.get(), SCMP_ACT_ALLOW, call, 1, &noCode);
    }
  }
  if (result == 0) result = seccomp_load(filter.get());
  errno = -result;
  check(result == 0, "forbid calls of the system");
}

}  // namespace

void enterSandbox() {
  check(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0, "give up new privileges");
  dropRoot();
  check(prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) == 0, "keep its memory from others");
  limit(RLIMIT_AS, kAddressSpace);
  limit(RLIMIT_CORE, 0);
  forbidCalls();
}

}  // namespace lumsar::agent
