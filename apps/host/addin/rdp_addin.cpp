// The add-in for RDP clients on FreeRDP's library, such as xfreerdp: "/vc:lumsar" gives them the
// cameras. One host without a console, on its own thread, for as long as the client lives.
//
//   client's thread:  VirtualChannelEntryEx, then whatever RdpChannel is told
//   own thread:       what RdpChannel sends
//   plug-in's thread: CameraHost
// These first: the RDP library has macros with the names of our status codes.
#include "addin/add_in_options.h"
#include "addin/open_panel.h"
#include "cameras/camera_view.h"
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
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "base/system/files.h"
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

AddInOptions optionsOf(const ADDIN_ARGV* arguments) {
  std::vector<std::string> words;
  for (int i = 1; arguments != nullptr && i < arguments->argc; ++i) {
    words.emplace_back(arguments->argv[i]);
  }
  return parseAddInOptions(words, addInDirectory());
}

void print(const std::string& line) {
  std::fprintf(stderr, "lumsar: %s\n", line.c_str());
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

// The camera window, if there can be one: what it shows, and what it asks of the host.
class AddInWindow {
 public:
  AddInWindow(asio::io_context& loop, const AddInOptions& options, const AddInVm& vm,
              Report& report)
      : m_view(loop,
               {.protocol = Protocol::Rdp,
                .choicesFile = base::userConfigFile("viewer.json"),
                .choicesKey = vm.key,
                .sharesByItself = !options.shares.empty()},
               {.show = [this](const CameraModel& model) { m_panel->show(model); },
                .log = [&report](const std::string& line) { report.say(line); }}) {
    if (!options.window) return;
    m_panel = openPanel(addInDirectory(), vm.name, m_view, [&](const std::string& why) {
      if (options.verbose) print(why);
    });
  }

  bool isThere() const { return m_panel != nullptr; }
  CameraView& view() { return m_view; }
  CameraPanel& panel() { return *m_panel; }

 private:
  CameraView m_view;
  std::unique_ptr<CameraPanel> m_panel;
};

class AddIn {
 public:
  AddIn(const AddInOptions& options, const AddInVm& vm)
      : m_shares(options.shares),
        m_report(true),
        m_log(m_report, options.verbose),
        m_window(m_loop, options, vm, m_report),
        m_host(m_loop, m_report,
               {.plugin = options.plugin,
                .driver = options.driver,
                .status = {},
                .onHandshake = [this] { return share(); },
                .onRefused = [this] { m_window.view().onFailure(); },
                .onSharedAgain = [this] { m_window.view().onSharedAgain(); }}),
        m_transport(m_loop, m_host.queue(), m_host.inbox()) {
    m_report.setSink(print);
    // The plug-in loads its IPC library below the working directory; that of its thread shall not
    // be the client's. Where this is not allowed, it is the client's for a moment.
    m_host.post([] { static_cast<void>(unshare(CLONE_FS)); });
    if (m_window.isThere()) m_host.queue().setTap(m_window.panel().tap());
    m_host.start(m_transport);
    if (m_window.isThere()) m_window.view().start(m_host);
    m_thread = std::thread([this] { m_window.view().run(); });
  }

  // Waits for the plug-in, a few seconds at worst.
  ~AddIn() {
    const auto end = [this] { m_loop.stop(); };
    if (m_window.isThere()) {
      m_window.view().stop(end);
    } else {
      m_host.stop(end);
    }
    m_thread.join();
  }
  AddIn(const AddIn&) = delete;
  AddIn& operator=(const AddIn&) = delete;

  RdpChannel& channel() { return m_transport.channel(); }
  // Another connection of the client asks for cameras.
  void noteOther(const std::string& vm) {
    if (m_window.isThere()) m_window.panel().noteOther(vm);
  }

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
      m_window.view().onSharedAgain();
    });
    return true;
  }

  std::vector<std::string> m_shares;  // still to be shared
  Report m_report;
  PluginLog m_log;
  asio::io_context m_loop;
  asio::executor_work_guard<asio::io_context::executor_type> m_work = asio::make_work_guard(m_loop);
  AddInWindow m_window;
  CameraHost m_host;
  AddInTransport m_transport;
  std::thread m_thread;
};

// The plug-in serves one host per process, and a client may make connections on several threads.
std::mutex loading;
AddIn* loaded = nullptr;

AddInVm vmOf(const CHANNEL_ENTRY_POINTS_FREERDP_EX& entry, const AddInOptions& options) {
  const rdpSettings& settings = *entry.context->settings;
  const char* host = settings.ServerHostname;
  return identify(options, host != nullptr ? host : "", settings.ServerPort);
}

// Says so when there will be no cameras. The client is not told: it would not connect at all.
void enter(const CHANNEL_ENTRY_POINTS_FREERDP_EX& entry, void* initHandle) {
  try {
    const std::lock_guard lock(loading);
    const AddInOptions options = optionsOf(static_cast<ADDIN_ARGV*>(entry.pExtendedData));
    const AddInVm vm = vmOf(entry, options);
    if (loaded != nullptr) {
      loaded->noteOther(vm.name);
      throw std::runtime_error("another connection of this program has them; close it first");
    }
    auto addIn = std::make_unique<AddIn>(options, vm);
    addIn->channel().setOnTerminated([] {
      const std::lock_guard guard(loading);
      const std::unique_ptr<AddIn> last(std::exchange(loaded, nullptr));
    });
    if (!addIn->channel().enter(entry, initHandle)) {
      throw std::runtime_error("the client refused the channel");
    }
    loaded = addIn.release();  // the client's, until it terminates the channel
  } catch (const std::exception& error) {
    print(base::text("no cameras: {}", error.what()));
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
