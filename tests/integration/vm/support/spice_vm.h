// SpiceVm: the fixture of the tests with a real VM. All tests share one VM, which boots once and
// again only after a test that has killed it.
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "integration/vm/support/guest.h"
#include "integration/vm/support/user_side.h"

namespace lumsar::test {

class SpiceVm : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  Guest& guest() { return *s_guest; }
  UserSide& user() const { return *m_user; }

  // Starts guest_agent in the guest with these steps.
  void agent(const std::string& steps);
  bool agentSays(const std::string& text) { return guest().expectIn("agent", text); }
  // Whether a VM's side that behaves gets its answer through: the end of each story of a bad one.
  bool nextSessionWorks();

 private:
  static std::unique_ptr<Guest> s_guest;
  std::unique_ptr<UserSide> m_user;
};

}  // namespace lumsar::test
