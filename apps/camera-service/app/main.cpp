// lumsar-camera-service: owns the cameras of the user's machine and streams them to VMs.
#include <sys/resource.h>

#include <QCoreApplication>
#include <csignal>
#include <cstdio>

#include "app/service.h"
#include "app/status_client.h"
#include "base/command_line.h"
#include "base/log.h"
#include "base/system/spare_resources.h"
#include "base/text/format.h"
#include "ipc/channel_path.h"

namespace lumsar::service {
namespace {

// Debian 12's GStreamer (1.22.0) leaves five files open each time a webcam is switched on; with the
// usual limit of 1024 the service would fail after two hundred times.
void allowManyFiles() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

// Libraries abort the program when they lack a descriptor or a thread's stack.
void checkLimits() {
  constexpr rlim_t kFewestFiles = 64;
  constexpr rlim_t kLeastAddressSpace = 512;  // MiB
  if (base::descriptorLimit() < kFewestFiles) {
    throw base::Failure(
        base::text("only {} open files are allowed; at least {} open files are needed (ulimit -n, "
                   "LimitNOFILE=)",
                   base::descriptorLimit(), kFewestFiles));
  }
  rlimit space{};
  if (getrlimit(RLIMIT_AS, &space) == 0 && space.rlim_cur >> 20U < kLeastAddressSpace) {
    throw base::Failure(base::text(
        "only {} MiB of address space are allowed; at least {} MiB of address space are needed "
        "(ulimit -v, LimitAS=)",
        space.rlim_cur >> 20U, kLeastAddressSpace));
  }
}

base::SocketListener listenAt(const std::string& channel) {
  using Directory = base::SocketListener::Directory;
  if (auto inherited = base::SocketListener::inherited()) return std::move(*inherited);
  const auto [error, path, fromName] = ipc::channelPath(channel.c_str());
  try {
    return base::SocketListener::at({path, {}, 0},
                                    fromName ? Directory::MakePrivate : Directory::Make);
  } catch (const base::AddressInUse&) {
    throw base::Failure(base::text(
        "a camera service is already running at {}; stop it or choose another --ipc-channel",
        path));
  }
}

void serve(const Options& options) {
  std::signal(SIGPIPE, SIG_IGN);  // a closed log must not end the service
  allowManyFiles();
  checkLimits();
  gst_init(nullptr, nullptr);
  asio::io_context io(1);
  Service(io, options, listenAt(options.channel)).run();
}

int run(int argc, char** argv) {
  const QCoreApplication application(argc, argv);
  const auto options = parseOptions(argc, argv);
  if (!options) return 0;
  base::setVerbose(options->verbose);
  base::setRepeatLimit(base::kMaxRepeatedLines);
  if (options->status) {
    std::fputs(askStatus(options->channel, options->json).c_str(), stdout);
  } else {
    serve(*options);
  }
  return 0;
}

}  // namespace
}  // namespace lumsar::service

int main(int argc, char** argv) {
  return lumsar::base::runProgram("lumsar-camera-service",
                                  [&] { return lumsar::service::run(argc, argv); });
}
