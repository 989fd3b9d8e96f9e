// Waiting for what another thread or process will do.
// Used by the tests of lumsar-agent.
#ifndef LUMSAR_TESTS_UNIT_AGENT_EVENTUALLY_H
#define LUMSAR_TESTS_UNIT_AGENT_EVENTUALLY_H

#include <chrono>
#include <thread>

namespace lumsar::agent::test {

// True as soon as `condition` is; false when it is not within the time.
template <class Condition>
bool eventually(Condition condition,
                std::chrono::milliseconds patience = std::chrono::milliseconds(4000)) {
  const auto end = std::chrono::steady_clock::now() + patience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

}  // namespace lumsar::agent::test

#endif
