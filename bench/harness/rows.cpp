#include "harness/rows.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <regex>
#include <string_view>

#include "harness/instructions.h"

namespace lumsar::bench {
namespace {

double medianOf(std::vector<double>& values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// JSON has no infinity.
std::string number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.6g", value);
  return std::isfinite(value) ? text : "null";
}

void measure(const Row& row) {
  std::vector<double> floors;
  std::vector<double> heres;
  for (int pair = 0; pair < row.pairs; ++pair) {
    std::fprintf(stderr, "%s: %d of %d\n", row.name.c_str(), pair + 1, row.pairs);
    if (row.floor) floors.push_back(row.floor());
    heres.push_back(row.here());
  }
  const double here = medianOf(heres);
  const double floor = floors.empty() ? 0 : medianOf(floors);
  std::printf(R"({"row":"%s","unit":"%s","floor":%s,"here":%s,"ratio":%s,"limit":%s})"
              "\n",
              row.name.c_str(), row.unit.c_str(), number(floor).c_str(), number(here).c_str(),
              number(here / floor).c_str(), number(row.limit).c_str());
  std::fflush(stdout);
}

}  // namespace

int runRows(int argc, char** argv, const std::vector<Row>& rows) {
  std::string only;
  bool list = false;
  for (int i = 1; i < argc; ++i) {
    const std::string_view word = argv[i];
    if (word == "--only" && i + 1 < argc) {
      only = argv[++i];
    } else if (word == "--list") {
      list = true;
    } else if (word == kCountOption && i + 1 < argc) {
      return runCountedStep(std::stoul(argv[++i]));
    } else {
      std::fprintf(stderr, "Usage: %s [--only REGEX] [--list]\n", argv[0]);
      return 2;
    }
  }
  try {
    const std::regex wanted(only, std::regex::extended);
    for (const Row& row : rows) {
      if (!std::regex_search(row.name, wanted)) continue;
      list ? static_cast<void>(std::puts(row.name.c_str())) : measure(row);
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
    return 1;
  }
  return 0;
}

}  // namespace lumsar::bench
