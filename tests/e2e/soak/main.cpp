// Runs the soak for a duration: 0 when nothing was wrong, 1 otherwise; Ctrl-C ends it early.
#include <csignal>
#include <iostream>

#include "base/errors.h"
#include "base/text/duration.h"
#include "soak/soak.h"

namespace {

std::atomic<bool> interrupted{false};

}  // namespace

int main(int argc, char** argv) {
  using namespace lumsar;
  if (argc != 4) {
    std::cerr << "Usage: chain_soak BIN STILL-IMAGE DURATION\n";
    return 2;
  }
  std::chrono::milliseconds duration{};
  try {
    duration = base::parseDuration(argv[3]);
  } catch (const base::UsageError& error) {
    std::cerr << error.what() << '\n';
    return 2;
  }
  for (const int number : {SIGINT, SIGTERM}) std::signal(number, [](int) { interrupted = true; });
  std::signal(SIGPIPE, SIG_IGN);
  const char* given = std::getenv("LUMSAR_SOAK_SEED");
  const unsigned seed = given != nullptr ? static_cast<unsigned>(std::strtoul(given, nullptr, 10))
                                         : std::random_device()();
  std::cout << "LUMSAR_SOAK_SEED=" << seed << std::endl;
  test::Soak soak(argv[1], argv[2], seed, interrupted);
  const std::string wrong = soak.run(duration);
  std::cout << soak.summary();
  if (!wrong.empty()) std::cout << soak.logs();
  std::cout << (wrong.empty() ? "nothing was wrong" : "WRONG: " + wrong) << std::endl;
  return wrong.empty() ? 0 : 1;
}
