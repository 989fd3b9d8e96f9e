// Runs a random fifth of the table, all of it, or the cells whose names hold a text; several chains
// at once.
#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <random>

#include "base/text/format.h"
#include "faults/table.h"
#include "support/text.h"

namespace lumsar::test {
namespace {

// Most of a cell's time is spent waiting.
constexpr std::size_t kAtOnce = 8;
constexpr std::size_t kShare = 5;
#ifdef LUMSAR_SANITIZED
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

struct Options {
  Programs programs;
  bool all = false;
  bool table = false;
  std::string only = {};
};

// A sanitizer needs more address space than there is to limit, and comes first in a program.
bool isPossible(const Fault& fault, bool canMount) {
  if (fault.needsDisk && !canMount) return false;
  return !kSanitized || !(fault.needsPreload || std::string(fault.name) == "no more memory");
}

std::vector<Cell> wholeTable(bool canMount) {
  std::vector<Cell> cells;
  for (const char* protocol : {"spice", "rdp"}) {
    for (const Stage stage : kStages) {
      cells.push_back({stage, Part::Line, nullptr, protocol});
      for (const Fault& fault : faults()) {
        if (!isPossible(fault, canMount)) continue;
        for (const Part part : fault.parts) cells.push_back({stage, part, &fault, protocol});
      }
    }
  }
  return cells;
}

unsigned seed() {
  const char* given = std::getenv("LUMSAR_FAULTS_SEED");
  return given != nullptr ? static_cast<unsigned>(std::strtoul(given, nullptr, 10))
                          : std::random_device()();
}

std::vector<Cell> chosen(std::vector<Cell> cells, const Options& options) {
  if (!options.only.empty()) {
    std::erase_if(cells, [&](const Cell& cell) { return !has(cell.name(), options.only); });
  } else if (!options.all) {
    const unsigned number = seed();
    std::cout << "LUMSAR_FAULTS_SEED=" << number << std::endl;
    std::ranges::shuffle(cells, std::mt19937(number));
    cells.resize(cells.size() / kShare);
  }
  return cells;
}

Results runAll(const std::vector<Cell>& cells, const Programs& programs) {
  Results results(cells.size());
  std::atomic<std::size_t> next{0};
  std::mutex output;
  const auto work = [&] {
    for (std::size_t i = next++; i < cells.size(); i = next++) {
      results[i] = {cells[i], run(cells[i], programs)};
      const Outcome& outcome = results[i].second;
      const std::lock_guard lock(output);
      std::cerr << (outcome.wrong.empty() ? "ok   " : "WRONG") << ' ' << cells[i].name() << ' '
                << outcome.recovery.count() << " ms" << std::endl;
      if (!outcome.wrong.empty()) std::cerr << outcome.wrong << '\n' << outcome.logs << std::endl;
    }
  };
  std::vector<std::jthread> workers;
  for (std::size_t i = 0; i < kAtOnce; ++i) workers.emplace_back(work);
  workers.clear();
  return results;
}

int runTable(const Options& options) {
  const std::string noMounts = prepareMounts();
  if (!noMounts.empty()) std::cout << "skipped: full disk, cannot mount one: " << noMounts << '\n';
  if (kSanitized) std::cout << "skipped: memory, threads and clocks, under a sanitizer\n";
  const Results results = runAll(chosen(wholeTable(noMounts.empty()), options), options.programs);
  if (options.table) std::cout << markdown(results);
  const auto wrong = std::ranges::count_if(
      results, [](const auto& result) { return !result.second.wrong.empty(); });
  std::cout << results.size() << " cells, " << wrong << " wrong" << std::endl;
  return wrong == 0 && !results.empty() ? 0 : 1;
}

}  // namespace
}  // namespace lumsar::test

int main(int argc, char** argv) {
  using namespace lumsar::test;
  const std::vector<std::string> words(argv + 1, argv + argc);
  if (words.size() == 3 && words[0] == "line") return runLine(words[1], words[2]);
  if (words.size() < 2) {
    std::cerr << "Usage: chain_faults BIN PRELOAD [--all] [--table] [--only TEXT]\n";
    return 2;
  }
  Options options{.programs = {words[0], "/proc/self/exe", words[1]}};
  for (std::size_t i = 2; i < words.size(); ++i) {
    options.all |= words[i] == "--all";
    options.table |= words[i] == "--table";
    if (words[i] == "--only" && i + 1 < words.size()) options.only = words[++i];
  }
  // A part that has ended is found out otherwise.
  std::signal(SIGPIPE, SIG_IGN);
  return runTable(options);
}
