// lumsar-agent, the guest agent: the command line, then Program until a signal or the time ends it.
#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "app/program.h"
#include "base/command_line.h"
#include "base/log.h"
#ifdef LUMSAR_AGENT_PIPEWIRE
#include "outputs/pipewire/pipewire_output.h"
#endif
#ifdef LUMSAR_AGENT_XRDP
#include "transport/xrdp_transport.h"
#endif

namespace lumsar::agent {
namespace {

// Signals become readable here; threads that are started later inherit the block.
base::UniqueFd takeEndSignals() {
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGINT);
  sigaddset(&ends, SIGTERM);
  sigaddset(&ends, SIGHUP);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);  // a file that may not grow is an error like a full disk
  return base::UniqueFd(signalfd(-1, &ends, SFD_CLOEXEC | SFD_NONBLOCK));
}

// A static program has no loader that could load xrdp's library.
std::unique_ptr<Transport> openXrdp(const Options& options) {
  if (!options.xrdp) return nullptr;
#ifdef LUMSAR_AGENT_XRDP
  return std::make_unique<XrdpTransport>(loadXrdpApi(*options.xrdp));
#else
  throw base::UsageError("the static program does not support --xrdp; use the dynamic one");
#endif
}

// PipeWire's library is a shared one, and not everywhere.
std::unique_ptr<SinkFactory> openPipewire(const Options& options) {
  if (!options.pipewire) return nullptr;
#if defined LUMSAR_AGENT_PIPEWIRE
  return std::make_unique<PipewireOutput>();
#elif defined LUMSAR_AGENT_XRDP
  throw base::UsageError(
      "this lumsar-agent was built without PipeWire; build it where libpipewire-0.3-dev is "
      "installed, or use --v4l2");
#else
  throw base::UsageError("the static program does not support --pipewire; use the dynamic one");
#endif
}

int run(int argc, const char* const* argv) {
  const auto options = parseOptions(argc, argv);
  if (!options) return 0;
  base::setVerbose(options->verbose);
  base::setRepeatLimit(base::kMaxRepeatedLines);
  const base::UniqueFd endSignal = takeEndSignals();
  Program program(*options, openXrdp(*options), openPipewire(*options));
  const bool written = program.run(endSignal.get());
  if (options->json) {
    std::puts(program.statusJson().c_str());
  } else if (isatty(STDOUT_FILENO) == 1) {
    std::fputs(toTable(program.status()).c_str(), stdout);
  }
  std::fflush(stdout);
  if (!written) std::_Exit(1);
  return 0;
}

}  // namespace
}  // namespace lumsar::agent

int main(int argc, char** argv) {
  return lumsar::base::runProgram("lumsar-agent", [&] { return lumsar::agent::run(argc, argv); });
}
