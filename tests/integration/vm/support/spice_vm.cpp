#include "integration/vm/support/spice_vm.h"

#include <cstdio>
#include <cstdlib>

namespace lumsar::test {

std::unique_ptr<Guest> SpiceVm::s_guest;

void SpiceVm::SetUp() {
  if (!s_guest) {
    s_guest = std::make_unique<Guest>("vm", testDirectory(), GuestSetup::desktop());
    std::atexit([] { s_guest.reset(); });
  }
  ASSERT_TRUE(s_guest->running() || s_guest->boot());
  m_user = std::make_unique<UserSide>(testDirectory());
}

void SpiceVm::TearDown() {
  if (m_user) m_user->endHost();
  if (HasFailure()) {
    if (m_user) m_user->printOutput();
    if (s_guest->running()) {
      std::printf("%s\n", s_guest->run("tail -n 30 /tmp/*.log").output.c_str());
    }
  }
  m_user.reset();
  if (s_guest->running()) {
    s_guest->run(
        "killall -CONT lumsar-agent; killall -KILL lumsar-agent guest_agent guest_reader; true");
  }
}

void SpiceVm::agent(const std::string& steps) {
  guest().start("agent", "guest_agent org.lumsar.camera.0 " + steps);
}

bool SpiceVm::nextSessionWorks() {
  guest().run("killall -KILL lumsar-agent guest_agent; true");
  user().host().skipOutput();
  agent("serve");
  return user().host().expect("VM answered, version 1.1");
}

}  // namespace lumsar::test
