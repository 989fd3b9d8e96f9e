#include "cameras/viewer_host.h"

#include <exception>
#include <utility>

#include "base/text/format.h"
#include "driver/find_libraries.h"

namespace lumsar::viewer {

namespace {

constexpr const char* kIpcLibraryVariable = "LUMSAR_IPC_LIBRARY";

}  // namespace

ViewerHost::ViewerHost(std::shared_ptr<host::Transport> transport, HostSetup setup, Actions actions)
    : m_transport(std::move(transport)),
      m_setup(std::move(setup)),
      m_actions(std::move(actions)),
      m_view(m_loop,
             {.protocol = m_setup.driver.protocol,
              .choicesFile = m_setup.choicesFile,
              .choicesKey = m_setup.choicesKey},
             {.show = m_actions.show, .log = m_actions.log}),
      m_thread([this] { run(); }) {}

ViewerHost::~ViewerHost() {
  stop();
  m_thread.join();
}

void ViewerHost::stop() {
  m_view.stop([this] { m_loop.stop(); });
}

// No exception may end somebody else's program.
void ViewerHost::run() {
  try {
    serve();
  } catch (const std::exception& error) {
    m_actions.log(base::text("no cameras: {}", error.what()));
    m_actions.show({.problem = host::Problem::CannotStart});
  }
  m_actions.ended();
}

HostSetup ViewerHost::completeSetup() const {
  HostSetup setup = m_setup;
  if (setup.plugin.empty()) setup.plugin = host::findPlugin(setup.directory);
  std::string& ipcLibrary = setup.driver.ipcLibrary;
  setup.driver.ipcLibraryOption = kIpcLibraryVariable;
  if (ipcLibrary.empty()) {
    ipcLibrary = host::findIpcLibrary(setup.plugin, setup.directory, kIpcLibraryVariable);
  }
  return setup;
}

void ViewerHost::serve() {
  const HostSetup setup = completeSetup();
  host::Report report(true);
  report.setSink(m_actions.log);
  const host::PluginLog log(report, m_setup.verbose);
  host::CameraHost host(m_loop, report,
                        {.plugin = setup.plugin,
                         .driver = setup.driver,
                         .status = {},
                         .onHandshake = [] { return false; },
                         .onRefused = [this] { m_view.onFailure(); },
                         .onSharedAgain = [this] { m_view.onSharedAgain(); },
                         .onDeviceChange = [this] { m_view.onDeviceChange(); }});
  m_actions.connect(host.queue(), host.inbox());
  m_view.post([&host, this] { host.start(*m_transport); });
  m_view.start(host);
  m_view.run();
}

}  // namespace lumsar::viewer
