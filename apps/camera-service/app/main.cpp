// lumsar-camera-service: owns the cameras of the user's machine and streams them to VMs.
#include <sys/resource.h>

#include <QCoreApplication>
#include <csignal>
#include <cstdio>

#include "app/service.h"
#include "app/status_client.h"
#include "base/command_line.h"
#include "base/log.h"
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
  gst_init(nullptr, nullptr);
  asio::io_context io(1);
  Service(io, options, listenAt(options.channel)).run();
}

int run(int argc, char** argv) {
  const QCoreApplication application(argc, argv);
  const auto options = parseOptions(argc, argv);
  if (!options) return 0;
  base::setVerbose(options->verbose);
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
