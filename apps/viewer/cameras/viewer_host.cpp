#include "cameras/viewer_host.h"

#include <algorithm>
#include <asio/post.hpp>
#include <exception>
#include <system_error>
#include <utility>

#include "base/text/format.h"
#include "driver/find_libraries.h"

namespace lumsar::viewer {

namespace {

// The service does not tell when a VM begins or ends to use a camera.
constexpr std::chrono::seconds kRefreshInterval{1};
constexpr const char* kIpcLibraryVariable = "LUMSAR_IPC_LIBRARY";

// A use may begin and end between two lists.
void noteUses(host::CameraList& list, const host::CameraList& before) {
  for (host::ListedCamera& camera : list.cameras) {
    const auto old = std::ranges::find(before.cameras, camera.id, &host::ListedCamera::id);
    if (old == before.cameras.end() || !camera.sharedHere) continue;
    camera.inUseHere |= camera.framesHere > old->framesHere;
  }
}

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
    m_actions.show({.problem = Problem::CannotStart});
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
  m_choices.emplace(m_setup.choicesFile, m_setup.choicesKey);
  warnOfChoices();
  host::CameraHost host(m_loop, report,
                        {.plugin = setup.plugin,
                         .driver = setup.driver,
                         .status = {},
                         .onHandshake = [] { return false; },
                         .onRefused = [this] { post([this] { failed(); }); },
                         .onSharedAgain = [this] { post([this] { handshake(); }); },
                         .onDeviceChange = [this] { post([this] { askAgain(); }); }});
  m_actions.connect(host.queue(), host.inbox());
  m_host = &host;
  post([this] {
    m_host->start(*m_transport);
    tick();
  });
  runLoop();
}

// The transport uses the host until it is told to stop, whatever has failed.
void ViewerHost::runLoop() {
  while (true) {
    try {
      m_loop.run();
      return;
    } catch (const std::exception& error) {
      m_actions.log(base::text("no more cameras: {}", error.what()));
    }
    post([this] { failed(); });
  }
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
      const bool isMeant = shared ? row.state == CameraState::Off : row.shared;
      if (isMeant) share(row.id, shared);
    }
  });
}

void ViewerHost::setWatched(bool watched) {
  post([this, watched] {
    m_isWatched = watched;
    refresh();
  });
}

// What is shared is not known of a service that has not been asked.
void ViewerHost::setRemembered(bool remembered) {
  post([this, remembered] {
    if (!remembered) remember(std::nullopt);
    if (remembered && m_list) remember(m_model.shared());
    // Even if nothing has changed: a box has, and has to go back.
    show(describe(), true);
  });
}

void ViewerHost::share(const std::string& id, bool shared) {
  m_host->control([this, id, shared](host::Commands& commands) {
    // Why it was refused is in the next list.
    const int status = (shared ? commands.share(id) : commands.unshare(id)).status;
    // What is no longer wanted is forgotten even when the service cannot be told.
    const bool counts = !shared || status == STATUS_OK;
    std::optional<host::CameraList> list;
    if (status != STATUS_LIST_CALL_FAILED) list = commands.cameras();
    post([this, id, shared, counts, list = std::move(list)] {
      if (counts) chose(id, shared);
      listed(list);
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
  if (!m_choices->canRemember()) return;
  m_notSaved = !m_choices->remember(std::move(cameras));
  if (m_notSaved) {
    m_actions.log(
        base::text("warning: cannot write {}: {}", m_setup.choicesFile, base::systemError()));
  }
  warnOfChoices();
}

void ViewerHost::warnOfChoices() {
  const std::string warning = m_choices->takeWarning();
  if (!warning.empty()) m_actions.log("warning: " + warning);
}

void ViewerHost::handshake() {
  if (!m_isRestored && m_choices->cameras()) restore(*m_choices->cameras());
  askAgain();
}

// Once, but a service that is lost meanwhile has to be told again.
void ViewerHost::restore(const Choices::Cameras& cameras) {
  m_isRestored = true;
  for (const std::string& id : cameras) {
    m_host->control([this, id](host::Commands& commands) {
      const int status = commands.share(id).status;
      if (status == STATUS_OK || status == host::kStatusRefused) return;
      post([this] { m_isRestored = false; });
    });
  }
}

void ViewerHost::failed() {
  m_timer.cancel();
  m_hasFailed = true;
  show({.problem = Problem::Failure});
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
  const host::Session::State state = m_host->state();
  if (!state.initialised) {
    m_list.reset();
    m_serviceAnswers = true;
  }
  const bool isKnown = m_list && m_serviceAnswers;
  const bool asks = m_isWatched || !m_model.shared().empty() || !isKnown;
  if (asks && state.initialised) return ask();
  show(describe());
}

// One question at a time: a camera service that hangs answers late.
void ViewerHost::ask() {
  if (std::exchange(m_isAsking, true)) return;
  m_asksAgain = false;
  m_host->control([this](host::Commands& commands) {
    post([this, list = commands.cameras()] {
      m_isAsking = false;
      listed(list);
      show(describe());
      if (m_asksAgain) ask();
    });
  });
}

// The answer to a question that is under way may be older than what has happened.
void ViewerHost::askAgain() {
  m_asksAgain = true;
  ask();
}

// What was last listed holds until there is another list: a camera may still be on.
void ViewerHost::listed(std::optional<host::CameraList> list) {
  m_serviceAnswers = list.has_value();
  if (!list) return;
  if (m_list) noteUses(*list, *m_list);
  m_list = std::move(list);
}

CameraModel ViewerHost::describe() const {
  CameraModel model = describeCameras(m_host->state(), m_list, m_serviceAnswers);
  model.canRemember = m_choices->canRemember();
  model.remembered = m_choices->cameras().has_value();
  model.notSaved = m_notSaved;
  return model;
}

void ViewerHost::show(CameraModel model, bool always) {
  if (m_hasFailed && model.problem != Problem::Failure) return;
  if (model == m_model && !always) return;
  m_model = std::move(model);
  m_actions.show(m_model);
}

}  // namespace lumsar::viewer
