// The outcomes as a table for the documents.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "faults/cell.h"

namespace lumsar::test {

using Results = std::vector<std::pair<Cell, Outcome>>;

// Of each fault: at each stage how long the recovery took, in seconds, SPICE / RDP, and which lines
// no undisturbed session writes.
std::string markdown(const Results& results);

}  // namespace lumsar::test
