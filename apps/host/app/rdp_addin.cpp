// The add-in for RDP clients on FreeRDP's library, such as xfreerdp: "/vc:lumsar" gives them the
// cameras. One host without a console, on its own thread, for as long as the client lives.
//
//   client's thread:  VirtualChannelEntryEx, then whatever RdpChannel is told
//   own thread:       what RdpChannel sends
//   plug-in's thread: CameraHost
// These first: the RDP library has macros with the names of our status codes.
#include "driver/find_libraries.h"
#include "session/camera_host.h"
#include "session/report.h"

#include <dlfcn.h>
#include <freerdp/settings.h>
#include <sched.h>

#include <algorithm>
#include <asio/executor_work_guard.hpp>
#include <asio/post.hpp>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "base/errors.h"
#include "base/text/format.h"
#include "base/text/utf8.h"
#include "rdp/rdp_channel.h"

namespace lumsar::host {

namespace {

namespace fs = std::filesystem;

fs::path addInDirectory() {
  Dl_info info{};
  std::error_code ignored;
  if (dladdr(reinterpret_cast<const void*>(&addInDirectory), &info) == 0) return {};
  return fs::canonical(info.dli_fname, ignored).parent_path();
}

// "/vc:lumsar,plugin:PATH,ipc-library:PATH,vm-id:ID,share:NAME,verbose"
struct AddInOptions {
  DriverSetup driver;
  std::string plugin;
  std::vector<std::string> shares;  // "all", "none" or cameras; empty: as the VM wants it
  bool verbose = false;
};

AddInOptions parseArguments(const ADDIN_ARGV* arguments) {
  AddInOptions options;
  options.driver.protocol = Protocol::Rdp;
  options.driver.ipcLibraryOption = "ipc-library:PATH";
  for (int i = 1; arguments != nullptr && i < arguments->argc; ++i) {
    const std::string word = arguments->argv[i];
    const auto colon = word.find(':');
    const std::string name = word.substr(0, colon);
    const std::string value = colon == std::string::npos ? "" : word.substr(colon + 1);
    if (name == "plugin") {
      options.plugin = value;
    } else if (name == "ipc-library") {
      options.driver.ipcLibrary = value;
    } else if (name == "vm-id") {
      options.driver.vmId = value;
    } else if (name == "share" && !value.empty()) {
      options.shares.push_back(value);
    } else if (name == "verbose") {
      options.verbose = true;
    } else {
      throw base::UsageError(
          base::text("unknown option \"{}\"; expected plugin:PATH, ipc-library:PATH, vm-id:ID, "
                     "share:NAME, share:all, share:none or verbose",
                     word));
    }
  }
  if (options.driver.vmId.empty()) throw base::UsageError("vm-id needs a value");
  const fs::path here = addInDirectory();
  if (options.plugin.empty()) options.plugin = findPlugin(here);
  if (options.driver.ipcLibrary.empty()) {
    options.driver.ipcLibrary =
        findIpcLibrary(options.plugin, here, options.driver.ipcLibraryOption);
  }
  return options;
}

// The client has the connection; here is only its channel.
class AddInTransport final : public Transport {
 public:
  AddInTransport(asio::io_context& loop, SendQueue& queue, Inbox& inbox)
      : m_loop(loop), m_channel(queue, inbox) {
    m_channel.setOnCapacity([this] { wake(); });
  }

  void start() override {}
  void stop() override {}
  void wake() override {
    asio::post(m_loop, [this] { m_channel.drain(); });
  }
  RdpChannel& channel() { return m_channel; }

 private:
  asio::io_context& m_loop;
  RdpChannel m_channel;
};

class AddIn {
 public:
  explicit AddIn(const AddInOptions& options)
      : m_shares(options.shares),
        m_report(true),
        m_log(m_report, options.verbose),
        m_host(m_loop, m_report,
               {.plugin = options.plugin,
                .driver = options.driver,
                .status = {},
                .onHandshake = [this] { return share(); },
                .onRefused = [] {}}),
        m_transport(m_loop, m_host.queue(), m_host.inbox()) {
    m_report.setSink(
        [](const std::string& line) { std::fprintf(stderr, "lumsar: %s\n", line.c_str()); });
    // The plug-in loads its IPC library below the working directory; that of its thread shall not
    // be the client's. Where this is not allowed, it is the client's for a moment.
    m_host.post([] { static_cast<void>(unshare(CLONE_FS)); });
    m_host.start(m_transport);
    m_thread = std::thread([this] { m_loop.run(); });
  }

  // Waits for the plug-in, a few seconds at worst.
  ~AddIn() {
    m_host.stop([this] { m_loop.stop(); });
    m_thread.join();
  }
  AddIn(const AddIn&) = delete;
  AddIn& operator=(const AddIn&) = delete;

  RdpChannel& channel() { return m_transport.channel(); }

 private:
  // With the first handshake; with later ones the host shares again what it remembers.
  bool share() {
    if (m_shares.empty()) return false;
    m_host.control([this, shares = std::exchange(m_shares, {})](Commands& commands) {
      const bool all = std::ranges::find(shares, "all") != shares.end();
      // Of a VM that wants all cameras, only these.
      commands.run(all ? "share-all" : "unshare-all");
      for (const std::string& camera : shares) {
        if (camera == "all" || camera == "none") continue;
        const Commands::Result result = commands.share(camera);
        m_report.say(base::text("share {}: {}", base::clean(camera), statusText(result.status)),
                     result.answer);
      }
    });
    return true;
  }

  std::vector<std::string> m_shares;  // still to be shared
  Report m_report;
  PluginLog m_log;
  asio::io_context m_loop;
  asio::executor_work_guard<asio::io_context::executor_type> m_work = asio::make_work_guard(m_loop);
  CameraHost m_host;
  AddInTransport m_transport;
  std::thread m_thread;
};

// The plug-in serves one host per process.
bool isLoaded = false;

// Says so when there will be no cameras. The client is not told: it would not connect at all.
void enter(const CHANNEL_ENTRY_POINTS_FREERDP_EX& entry, void* initHandle) {
  try {
    if (isLoaded)
      throw std::runtime_error("another connection of this program has them; close it first");
    auto addIn =
        std::make_unique<AddIn>(parseArguments(static_cast<ADDIN_ARGV*>(entry.pExtendedData)));
    addIn->channel().setOnTerminated([owned = addIn.get()] {
      const std::unique_ptr<AddIn> last(owned);
      isLoaded = false;
    });
    if (!addIn->channel().enter(entry, initHandle)) {
      throw std::runtime_error("the client refused the channel");
    }
    isLoaded = true;
    static_cast<void>(addIn.release());  // the client's, until it terminates the channel
  } catch (const std::exception& error) {
    std::fprintf(stderr, "lumsar: no cameras: %s\n", error.what());
  }
}

}  // namespace

}  // namespace lumsar::host

extern "C" __attribute__((visibility("default"))) BOOL VCAPITYPE
VirtualChannelEntryEx(PCHANNEL_ENTRY_POINTS_EX points, PVOID initHandle);

BOOL VCAPITYPE VirtualChannelEntryEx(PCHANNEL_ENTRY_POINTS_EX points, PVOID initHandle) {
  const auto& entry = *reinterpret_cast<CHANNEL_ENTRY_POINTS_FREERDP_EX*>(points);
  lumsar::host::enter(entry, initHandle);
  return TRUE;
}
