// The rows of the table: what a step costs here, and the least that it could cost, measured in
// turn by the same program, so that whatever else the machine does meets both.
#pragma once

#include <functional>
#include <limits>
#include <string>
#include <vector>

namespace lumsar::bench {

// One measurement, in the row's unit.
using Measure = std::function<double()>;

inline constexpr double kNoLimit = std::numeric_limits<double>::infinity();

struct Row {
  std::string name;
  std::string unit;
  Measure floor;  // none: `limit` is a bound on what is measured here, not on a ratio
  Measure here;
  double limit = kNoLimit;
  int pairs = 7;
};

// The main function of a program of rows: `PROGRAM [--only REGEX] [--list]`. Prints one line of
// JSON for each row, and on standard error how far it is.
int runRows(int argc, char** argv, const std::vector<Row>& rows);

}  // namespace lumsar::bench
