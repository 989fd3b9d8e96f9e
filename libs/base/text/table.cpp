#include "base/text/table.h"

#include <algorithm>

namespace lumsar::base {
namespace {

// In characters: the bytes that continue one are not counted.
std::size_t widthOf(const std::string& cell) {
  return static_cast<std::size_t>(std::ranges::count_if(
      cell, [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; }));
}

std::vector<std::size_t> widthsOf(const std::vector<TableRow>& rows) {
  std::vector<std::size_t> widths;
  for (const TableRow& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], widthOf(row[i]));
  }
  return widths;
}

}  // namespace

std::string table(const std::vector<TableRow>& rows) {
  const std::vector<std::size_t> widths = widthsOf(rows);
  std::string text;
  for (const TableRow& row : rows) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      line += "  " + row[i] + std::string(widths[i] - widthOf(row[i]), ' ');
    }
    text += line.erase(line.find_last_not_of(' ') + 1) + "\n";
  }
  return text;
}

}  // namespace lumsar::base
