// Looking for parts of texts.
#pragma once

#include <string_view>

namespace lumsar::test {

inline bool has(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

inline int occurrences(std::string_view text, std::string_view part) {
  int found = 0;
  for (auto at = text.find(part); at != text.npos; at = text.find(part, at + 1)) ++found;
  return found;
}

}  // namespace lumsar::test
