// Secrets come from files or the environment, as everybody can read a command line.
#pragma once

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "base/errors.h"
#include "base/text/format.h"

namespace lumsar::host {

// Empty when it is not set.
inline std::string environment(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

// The first `count` lines of a file that may come from another system. Throws Failure when they are
// not there.
inline std::vector<std::string> readLines(const std::string& file, std::size_t count,
                                          const char* what, const char* expected = "") {
  std::ifstream stream(file);
  std::vector<std::string> lines;
  for (std::string line; lines.size() < count && std::getline(stream, line);) {
    if (line.ends_with('\r')) line.pop_back();
    if (!line.empty()) lines.push_back(line);
  }
  if (lines.size() < count) {
    throw base::Failure(base::text("cannot read {} from {}{}", what, file, expected));
  }
  return lines;
}

}  // namespace lumsar::host
