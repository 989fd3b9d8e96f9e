#include "base/repeat_limit.h"

#include "base/text/format.h"

namespace lumsar::base {

void RepeatLimit::set(unsigned lines) {
  const std::lock_guard lock(m_mutex);
  m_limit = lines;
  m_kinds.clear();
}

std::optional<std::string> RepeatLimit::admit(std::string_view kind, Clock::time_point now) {
  const std::lock_guard lock(m_mutex);
  if (m_limit == 0 || kind.empty()) return "";
  auto known = m_kinds.find(kind);
  if (known == m_kinds.end()) known = m_kinds.emplace(kind, Kind{now}).first;
  auto& [begin, lines] = known->second;
  std::string note;
  if (now - begin >= std::chrono::minutes(1)) {
    if (lines > m_limit) note = text(" ({} lines like this one were left out)", lines - m_limit);
    known->second = {now};
  }
  if (++lines > m_limit) return std::nullopt;
  if (lines == m_limit) note += " (more lines like this one are only counted for a minute)";
  return note;
}

}  // namespace lumsar::base
