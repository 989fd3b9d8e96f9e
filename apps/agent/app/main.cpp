// lumsar-agent: the VM's side of camera redirection as a program.
// Reads the command line, runs Program until a signal or the time ends it, prints the summary.
// The one thread here is the channel's thread; sinks and the page have their own.
#include <sys/signalfd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "app/log.h"
#include "app/program.h"
#include "transport/address.h"
#include "version.h"
#ifdef LUMSAR_AGENT_XRDP
#include "transport/xrdp_transport.h"
#endif

namespace {

using lumsar::base::UniqueFd;
using namespace lumsar::agent;

// Signals become readable here; threads that are started later inherit the block.
lumsar::base::UniqueFd takeEndSignals() {
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGINT);
  sigaddset(&ends, SIGTERM);
  sigaddset(&ends, SIGHUP);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);  // a file that may not grow is an error like a full disk
  return lumsar::base::UniqueFd(signalfd(-1, &ends, SFD_CLOEXEC | SFD_NONBLOCK));
}

// A static program has no loader that could bring xrdp's library.
std::unique_ptr<Transport> openXrdp(const Options& options) {
  if (!options.xrdp) return nullptr;
#ifdef LUMSAR_AGENT_XRDP
  return std::make_unique<XrdpTransport>(loadXrdpApi(*options.xrdp));
#else
  throw UsageError("this program is static and has no --xrdp; use the lumsar-agent that is not");
#endif
}

int run(const Options& options) {
  const lumsar::base::UniqueFd endSignal = takeEndSignals();
  Program program(options, openXrdp(options));
  const bool written = program.run(endSignal.get());
  if (options.json) std::puts(program.statusJson().c_str());
  std::fflush(stdout);
  if (!written) std::_Exit(1);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const Options options = parseOptions(argc, argv);
    if (options.help) return std::fputs(helpText().c_str(), stdout) < 0 ? 1 : 0;
    if (options.version) return std::printf("lumsar-agent %s\n", kVersion) < 0 ? 1 : 0;
    setVerbose(options.verbose);
    return run(options);
  } catch (const UsageError& error) {
    logError(error.what(), "; see lumsar-agent --help");
    return 2;
  } catch (const std::exception& error) {
    logError(error.what());
    return 1;
  }
}
