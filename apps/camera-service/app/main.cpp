// lumsar-camera-service: owns the cameras of the user's machine and streams them to VMs. Started by
// the user or by a service manager; main thread.
// Exit codes: 0 stopped as told, 1 failure, 2 usage.
#include <sys/resource.h>

#include <QCoreApplication>
#include <csignal>
#include <cstdio>
#include <stdexcept>

#include "app/log.h"
#include "app/service.h"
#include "app/status_client.h"
#include "ipc/channel_path.h"

namespace {

using namespace lumsar;
using service::Options;

// Debian 12's GStreamer (1.22.0) leaves five files open each time a webcam is switched on; with the
// usual limit of 1024 the service would end its days after two hundred times.
void allowManyFiles() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

int serve(const Options& options) {
  std::signal(SIGPIPE, SIG_IGN);  // a reader of the log that has left must not end the service
  allowManyFiles();
  gst_init(nullptr, nullptr);
  asio::io_context io(1);
  auto inherited = ipc::Listener::inherited();
  const auto [error, path, fromName] = ipc::channelPath(options.channel.c_str());
  using Directory = ipc::Listener::Directory;
  auto listener = inherited
                      ? std::move(*inherited)
                      : ipc::Listener::at(path, fromName ? Directory::Own : Directory::Chosen);
  service::Service(io, options, std::move(listener)).run();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const QCoreApplication application(argc, argv);
  QCoreApplication::setApplicationName("lumsar-camera-service");
  Options options;
  try {
    options = service::readOptions(QCoreApplication::arguments());
  } catch (const std::exception& error) {
    std::fprintf(stderr, "lumsar-camera-service: %s\nTry --help.\n", error.what());
    return 2;
  }
  service::setVerbose(options.verbose);
  try {
    switch (options.action) {
      case Options::Action::PrintAndExit:
        std::fputs(options.text.c_str(), stdout);
        return 0;
      case Options::Action::Status:
        std::fputs(service::askStatus(options.channel, options.json).c_str(), stdout);
        return 0;
      case Options::Action::Serve:
        return serve(options);
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "lumsar-camera-service: %s\n", error.what());
  }
  return 1;
}
