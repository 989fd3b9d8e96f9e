// RepeatLimit: of each kind of line only so many in a window are written, the others are counted:
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
  // 0 lines for no limit.
  explicit RepeatLimit(unsigned lines = 0,
                       std::chrono::milliseconds window = std::chrono::minutes(1))
      : m_limit(lines), m_window(window) {}

  void set(unsigned lines, std::chrono::milliseconds window);
  // What to add to the line; nothing if it is only counted. Kinds are the program's own texts, so
  // there are not many of them.
  std::optional<std::string> admit(std::string_view kind);

 private:
  struct Kind {
    std::chrono::steady_clock::time_point begin;
    std::uint64_t lines = 0;
  };
  std::mutex m_mutex;
  unsigned m_limit;
  std::chrono::milliseconds m_window;
  std::map<std::string, Kind, std::less<>> m_kinds;
};

}  // namespace lumsar::base
