// Waiting for what another thread or process is bound to do.
#pragma once

#include <chrono>
#include <thread>

namespace lumsar::test {

using std::chrono::milliseconds;

// Generous, for machines under load; a test that passes never waits that long.
inline constexpr milliseconds kTimeout{60000};
// What happens at once has happened by then, on such a machine, too. Shorter than the shortest
// wait that would be a mistake.
inline constexpr milliseconds kAtOnce{2500};

// True as soon as `condition` is; false when it is not within `limit`.
template <class Condition>
bool eventually(Condition condition, milliseconds limit = kTimeout) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) return condition();
    std::this_thread::sleep_for(milliseconds(1));
  }
  return true;
}

// The same for what happens in `context`, an io_context, which runs while this waits.
template <class Context, class Condition>
bool eventuallyIn(Context& context, Condition condition, milliseconds limit = kTimeout) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!condition() && std::chrono::steady_clock::now() < deadline) {
    context.restart();
    context.run_one_for(milliseconds(10));
  }
  return condition();
}

}  // namespace lumsar::test
