// CallWatch: tells, while a call of the plug-in is still under way, that it takes too long.
// Calls are made on the plug-in's thread, watched on the main loop.
#pragma once

#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <functional>
#include <mutex>

namespace lumsar::host {

class CallWatch {
 public:
  explicit CallWatch(asio::io_context& loop) : m_timer(loop) {}

  // Runs `call`; false when it took longer than `timeout`. Then `onStall` was called on the main
  // loop as soon as the time was over.
  bool run(std::chrono::milliseconds timeout, const std::function<void()>& call,
           std::function<void()> onStall);

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr Clock::time_point kNever = Clock::time_point::max();

  void watch();

  asio::steady_timer m_timer;
  std::mutex m_mutex;  // guards what follows
  bool m_stalled = false;
  Clock::time_point m_deadline = kNever;  // of the call under way
  Clock::time_point m_armedFor = kNever;  // when the timer looks next
  std::function<void()> m_onStall;
};

}  // namespace lumsar::host
