// RepeatLimit: of each kind of line only so many a minute are written, the others are counted:
// what a peer repeats must not fill the disk. Thread-safe.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace lumsar::base {

// Of one kind per minute.
inline constexpr unsigned kMaxRepeatedLines = 20;

class RepeatLimit {
 public:
  using Clock = std::chrono::steady_clock;

  // 0 lines for no limit.
  explicit RepeatLimit(unsigned lines = 0) : m_limit(lines) {}

  void set(unsigned lines);
  // What to add to the line; nothing if it is only counted. Kinds are the program's own texts, so
  // there are not many of them.
  std::optional<std::string> admit(std::string_view kind, Clock::time_point now = Clock::now());

 private:
  struct Kind {
    Clock::time_point begin;
    std::uint64_t lines = 0;
  };
  std::mutex m_mutex;
  unsigned m_limit;
  std::map<std::string, Kind, std::less<>> m_kinds;
};

}  // namespace lumsar::base
