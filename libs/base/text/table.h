// Lines of aligned columns, for people.
#pragma once

#include <string>
#include <vector>

namespace lumsar::base {

using TableRow = std::vector<std::string>;

// A line for each row, indented by two spaces; the columns are two spaces apart. The cells hold no
// control characters.
std::string table(const std::vector<TableRow>& rows);

}  // namespace lumsar::base
