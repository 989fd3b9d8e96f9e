#include "harness/instructions.h"

#include <valgrind/callgrind.h>

#include <filesystem>
#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/process.h"

namespace lumsar::bench {
namespace {

constexpr int kWarmUp = 10;
constexpr int kRuns = 1000;

std::vector<PrepareStep>& steps() {
  static std::vector<PrepareStep> all;
  return all;
}

double instructionsOf(std::size_t number) {
  const auto self = std::filesystem::read_symlink("/proc/self/exe");
  test::Process valgrind({"valgrind", "--tool=callgrind", "--instr-atstart=no",
                          "--callgrind-out-file=/dev/null", self.string(), kCountOption,
                          std::to_string(number)});
  const int status = valgrind.wait(std::chrono::minutes(2));
  std::smatch found;
  if (status != 0 ||
      !std::regex_search(valgrind.output(), found, std::regex("Collected : ([0-9]+)"))) {
    throw std::runtime_error("valgrind does not count:\n" + valgrind.output());
  }
  return std::stod(found[1]) / kRuns;
}

}  // namespace

Measure countedStep(PrepareStep prepare) {
  steps().push_back(std::move(prepare));
  return [number = steps().size() - 1] { return instructionsOf(number); };
}

int runCountedStep(std::size_t number) {
  const auto step = steps().at(number)();
  for (int i = 0; i < kWarmUp; ++i) step();
  CALLGRIND_START_INSTRUMENTATION;
  for (int i = 0; i < kRuns; ++i) step();
  CALLGRIND_STOP_INSTRUMENTATION;
  return 0;
}

}  // namespace lumsar::bench
