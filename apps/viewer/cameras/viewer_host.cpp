#include "cameras/viewer_host.h"

#include <asio/post.hpp>
#include <exception>
#include <utility>

#include "base/text/format.h"
#include "driver/find_libraries.h"

namespace lumsar::viewer {

namespace {

// The service does not tell when a VM begins or ends to use a camera.
constexpr std::chrono::seconds kRefreshInterval{1};

}  // namespace

ViewerHost::ViewerHost(std::shared_ptr<host::Transport> transport, HostSetup setup, Actions actions)
    : m_transport(std::move(transport)),
      m_setup(std::move(setup)),
      m_actions(std::move(actions)),
      m_thread([this] { run(); }) {}

ViewerHost::~ViewerHost() {
  stop();
  m_thread.join();
}

void ViewerHost::stop() {
  post([this] {
    m_timer.cancel();
    std::exchange(m_host, nullptr)->stop([this] { m_loop.stop(); });
  });
}

// No exception may end somebody else's program.
void ViewerHost::run() {
  try {
    serve();
  } catch (const std::exception& error) {
    m_actions.log(base::text("no cameras: {}", error.what()));
    m_actions.show({.problem = Problem::Failure, .details = error.what()});
  }
  m_actions.ended();
}

HostSetup ViewerHost::completeSetup() const {
  HostSetup setup = m_setup;
  if (setup.plugin.empty()) setup.plugin = host::findPlugin(setup.directory);
  std::string& ipcLibrary = setup.driver.ipcLibrary;
  if (ipcLibrary.empty()) ipcLibrary = host::findIpcLibrary(setup.plugin, setup.directory);
  return setup;
}

void ViewerHost::serve() {
  const HostSetup setup = completeSetup();
  host::Report report(true);
  report.setSink(m_actions.log);
  const host::PluginLog log(report, m_setup.verbose);
  m_choices.emplace(m_setup.choicesFile, m_setup.choicesKey);
  if (!m_choices->warning().empty()) report.say("warning: " + m_choices->warning());
  host::CameraHost host(m_loop, report,
                        {.plugin = setup.plugin,
                         .driver = setup.driver,
                         .status = {},
                         .onHandshake =
                             [this] {
                               post([this] { handshake(); });
                               return false;
                             },
                         .onRefused = [this] { post([this] { failed(); }); }});
  m_actions.connect(host.queue(), host.inbox());
  m_host = &host;
  host.start(*m_transport);
  tick();
  m_loop.run();
}

// What waits for a host that is not there any more is left out.
void ViewerHost::post(std::function<void()> job) {
  asio::post(m_loop, [this, job = std::move(job)] {
    if (m_host != nullptr) job();
  });
}

void ViewerHost::setShared(const std::string& id, bool shared) {
  post([this, id, shared] { share(id, shared); });
}

void ViewerHost::setAllShared(bool shared) {
  post([this, shared] {
    for (const CameraRow& row : m_model.cameras) {
      if (row.shared != shared && row.state != CameraState::Refused) share(row.id, shared);
    }
  });
}

void ViewerHost::setWatched(bool watched) {
  post([this, watched] {
    m_isWatched = watched;
    refresh();
  });
}

void ViewerHost::setRemembered(bool remembered) {
  post([this, remembered] {
    remember(remembered ? std::optional(m_model.shared()) : std::nullopt);
    refresh();
  });
}

void ViewerHost::share(const std::string& id, bool shared) {
  m_host->control([this, id, shared](host::Commands& commands) {
    // Why it was refused is in the next list.
    const int status = (shared ? commands.share(id) : commands.unshare(id)).status;
    // What is no longer wanted is forgotten even when the service cannot be told.
    const bool counts = !shared || status == STATUS_OK;
    post([this, id, shared, counts, list = commands.cameras()] {
      if (counts) chose(id, shared);
      m_list = list;
      // Even if nothing has changed: a switch has, and has to go back.
      show(describe(), true);
    });
  });
}

void ViewerHost::chose(const std::string& id, bool shared) {
  if (!m_choices->cameras()) return;
  Choices::Cameras cameras = *m_choices->cameras();
  std::erase(cameras, id);
  if (shared) cameras.push_back(id);
  remember(std::move(cameras));
}

void ViewerHost::remember(std::optional<Choices::Cameras> cameras) {
  if (m_choices->remember(std::move(cameras))) return;
  m_actions.log(
      base::text("warning: cannot write {}: {}", m_setup.choicesFile, base::systemError()));
}

void ViewerHost::handshake() {
  if (!std::exchange(m_isRestored, true) && m_choices->cameras()) {
    for (const std::string& id : *m_choices->cameras()) share(id, true);
  }
  ask();
}

void ViewerHost::failed() {
  m_timer.cancel();
  show({.problem = Problem::Failure, .details = "the cameras have failed; connect again"});
}

void ViewerHost::tick() {
  refresh();
  m_timer.expires_after(kRefreshInterval);
  m_timer.async_wait([this](std::error_code error) {
    if (!error && m_host != nullptr) tick();
  });
}

// A service whose cameras are neither shown nor shared is not woken up.
void ViewerHost::refresh() {
  if (m_model.problem == Problem::Failure) return;
  const host::Session::State state = m_host->state();
  if (!state.initialised) m_list.reset();
  const bool asks = m_isWatched || !m_model.shared().empty() || !m_list;
  if (asks && state.initialised) return ask();
  show(describe());
}

// One question at a time: a camera service that hangs answers late.
void ViewerHost::ask() {
  if (std::exchange(m_isAsking, true)) return;
  m_host->control([this](host::Commands& commands) {
    post([this, list = commands.cameras()] {
      m_isAsking = false;
      m_list = list;
      show(describe());
    });
  });
}

CameraModel ViewerHost::describe() const {
  CameraModel model = describeCameras(m_host->state(), m_list, m_setup.driver.vmId);
  model.remembered = m_choices->cameras().has_value();
  return model;
}

void ViewerHost::show(CameraModel model, bool always) {
  if (model == m_model && !always) return;
  m_model = std::move(model);
  m_actions.show(m_model);
}

}  // namespace lumsar::viewer
