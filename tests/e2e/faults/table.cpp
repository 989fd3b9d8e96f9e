#include "faults/table.h"

#include <algorithm>
#include <functional>
#include <set>

#include "base/text/format.h"

namespace lumsar::test {
namespace {

struct RowContent {
  std::map<Stage, std::string> recoveries;
  std::map<std::string, std::vector<milliseconds>> lines;  // after how long, in each cell
};

std::set<std::string> ordinaryLines(const Results& results) {
  std::set<std::string> lines;
  for (const auto& [cell, outcome] : results) {
    if (cell.fault != nullptr) continue;
    for (const auto& [line, after] : outcome.lines) lines.insert(line);
  }
  return lines;
}

std::string escaped(std::string line) {
  for (auto at = line.find('|'); at != line.npos; at = line.find('|', at + 2))
    line.insert(at, "\\");
  return line;
}

std::string seconds(milliseconds time) {
  return base::text("{:.1f}", static_cast<double>(time.count()) / 1000);
}

// Those that the most cells have, and after how long at the earliest and the latest.
std::string seen(const RowContent& row) {
  constexpr std::size_t kLines = 3;
  using Line = std::pair<std::string, std::vector<milliseconds>>;
  std::vector<Line> lines(row.lines.begin(), row.lines.end());
  std::ranges::stable_sort(lines, std::greater(),
                           [](const Line& line) { return line.second.size(); });
  if (lines.size() > kLines) lines.resize(kLines);
  std::string text;
  for (const auto& [line, times] : lines) {
    const auto [first, last] = std::ranges::minmax(times);
    text += base::text("{}`{}` ({} to {} s)", text.empty() ? "" : "<br>", escaped(line),
                       seconds(first), seconds(last));
  }
  return text.empty() ? "nothing" : text;
}

}  // namespace

std::string markdown(const Results& results) {
  const std::set<std::string> ordinary = ordinaryLines(results);
  std::map<std::pair<std::size_t, std::size_t>, RowContent> rows;
  for (const auto& [cell, outcome] : results) {
    if (cell.fault == nullptr) continue;
    const auto fault = static_cast<std::size_t>(cell.fault - faults().data());
    RowContent& row = rows[{fault, static_cast<std::size_t>(cell.part)}];
    std::string& recovery = row.recoveries[cell.stage];
    recovery += (recovery.empty() ? "" : " / ") + seconds(outcome.recovery);
    std::set<std::string> before;
    for (const auto& [line, after] : outcome.lines) {
      if (ordinary.contains(line) || !before.insert(line).second) continue;
      row.lines[line].push_back(after);
    }
  }
  std::string text = "| fault | part |";
  for (const Stage stage : kStages) text += base::text(" {} |", nameOf(stage));
  text += " seen |\n|---|---|";
  for (std::size_t i = 0; i < kStages.size(); ++i) text += "---|";
  text += "---|\n";
  for (const auto& [key, row] : rows) {
    text +=
        base::text("| {} | {} |", faults()[key.first].name, nameOf(static_cast<Part>(key.second)));
    for (const Stage stage : kStages) {
      const auto found = row.recoveries.find(stage);
      text += base::text(" {} |", found == row.recoveries.end() ? "" : found->second);
    }
    text += base::text(" {} |\n", seen(row));
  }
  return text;
}

}  // namespace lumsar::test
