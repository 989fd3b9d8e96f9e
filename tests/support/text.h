// Looking for parts of texts, and the texts of exceptions.
#pragma once

#include <exception>
#include <string>
#include <string_view>

namespace lumsar::test {

inline bool has(std::string_view text, std::string_view part) {
  return text.find(part) != text.npos;
}

inline int occurrences(std::string_view text, std::string_view part) {
  int found = 0;
  for (auto at = text.find(part); at != text.npos; at = text.find(part, at + 1)) ++found;
  return found;
}

// What is said by the Error that `action` throws; "no error" when it throws none.
template <class Error = std::exception, class Action>
std::string errorOf(Action action) {
  try {
    action();
  } catch (const Error& error) {
    return error.what();
  }
  return "no error";
}

}  // namespace lumsar::test
