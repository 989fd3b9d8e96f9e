#include "cameras/camera_view.h"

#include <algorithm>
#include <asio/post.hpp>
#include <chrono>
#include <exception>
#include <system_error>
#include <utility>

#include "base/text/format.h"

namespace lumsar::host {

namespace {

// The service does not tell when a VM begins or ends to use a camera.
constexpr std::chrono::seconds kRefreshInterval{1};

// A use may begin and end between two lists.
void noteUses(CameraList& list, const CameraList& before) {
  for (ListedCamera& camera : list.cameras) {
    const auto old = std::ranges::find(before.cameras, camera.id, &ListedCamera::id);
    if (old == before.cameras.end() || !camera.sharedHere) continue;
    camera.inUseHere |= camera.framesHere > old->framesHere;
  }
}

}  // namespace

CameraView::CameraView(asio::io_context& loop, Settings settings, Actions actions)
    : m_loop(loop),
      m_settings(std::move(settings)),
      m_actions(std::move(actions)),
      m_isRestored(m_settings.sharesByItself) {}

void CameraView::start(CameraHost& host) {
  m_choices.emplace(m_settings.choicesFile, m_settings.choicesKey);
  warnOfChoices();
  m_host = &host;
  post([this] { tick(); });
}

void CameraView::run() {
  while (true) {
    try {
      m_loop.run();
      return;
    } catch (const std::exception& error) {
      m_actions.log(base::text("no more cameras: {}", error.what()));
    }
    onFailure();
  }
}

void CameraView::stop(std::function<void()> done) {
  post([this, done = std::move(done)] {
    m_timer.cancel();
    std::exchange(m_host, nullptr)->stop(done);
  });
}

// What waits for a host that is not there any more is left out.
void CameraView::post(std::function<void()> job) {
  asio::post(m_loop, [this, job = std::move(job)] {
    if (m_host != nullptr) job();
  });
}

void CameraView::setShared(const std::string& id, bool shared) {
  post([this, id, shared] { share(id, shared); });
}

void CameraView::setAllShared(bool shared) {
  post([this, shared] {
    for (const CameraRow& row : m_model.cameras) {
      const bool isMeant = shared ? row.state == CameraState::Off : row.shared;
      if (isMeant) share(row.id, shared);
    }
  });
}

void CameraView::setWatched(bool watched) {
  post([this, watched] {
    m_isWatched = watched;
    refresh();
  });
}

// What is shared is not known of a service that has not been asked.
void CameraView::setRemembered(bool remembered) {
  post([this, remembered] {
    if (!remembered) remember(std::nullopt);
    if (remembered && m_list) remember(m_model.shared());
    // Even if nothing has changed: a box has, and has to go back.
    show(describe(), true);
  });
}

void CameraView::share(const std::string& id, bool shared) {
  m_host->control([this, id, shared](Commands& commands) {
    // Why it was refused is in the next list.
    const int status = (shared ? commands.share(id) : commands.unshare(id)).status;
    // What is no longer wanted is forgotten even when the service cannot be told.
    const bool counts = !shared || status == STATUS_OK;
    std::optional<CameraList> list;
    if (status != STATUS_LIST_CALL_FAILED) list = commands.cameras();
    post([this, id, shared, counts, list = std::move(list)] {
      if (counts) chose(id, shared);
      listed(list);
      // Even if nothing has changed: a switch has, and has to go back.
      show(describe(), true);
    });
  });
}

void CameraView::chose(const std::string& id, bool shared) {
  if (!m_choices->cameras()) return;
  Choices::Cameras cameras = *m_choices->cameras();
  std::erase(cameras, id);
  if (shared) cameras.push_back(id);
  remember(std::move(cameras));
}

void CameraView::remember(std::optional<Choices::Cameras> cameras) {
  if (!m_choices->canRemember()) return;
  m_notSaved = !m_choices->remember(std::move(cameras));
  if (m_notSaved) {
    m_actions.log(
        base::text("warning: cannot write {}: {}", m_settings.choicesFile, base::systemError()));
  }
  warnOfChoices();
}

void CameraView::warnOfChoices() {
  const std::string warning = m_choices->takeWarning();
  if (!warning.empty()) m_actions.log("warning: " + warning);
}

void CameraView::onSharedAgain() {
  post([this] {
    if (!m_isRestored && m_choices->cameras()) restore(*m_choices->cameras());
    askAgain();
  });
}

void CameraView::onDeviceChange() {
  post([this] { askAgain(); });
}

void CameraView::onFailure() {
  post([this] { failed(); });
}

// Once, but a service that is lost meanwhile has to be told again.
void CameraView::restore(const Choices::Cameras& cameras) {
  m_isRestored = true;
  for (const std::string& id : cameras) {
    m_host->control([this, id](Commands& commands) {
      const int status = commands.share(id).status;
      if (status == STATUS_OK || status == kStatusRefused) return;
      post([this] { m_isRestored = false; });
    });
  }
}

void CameraView::failed() {
  m_timer.cancel();
  m_hasFailed = true;
  show({.problem = Problem::Failure});
}

void CameraView::tick() {
  refresh();
  m_timer.expires_after(kRefreshInterval);
  m_timer.async_wait([this](std::error_code error) {
    if (!error && m_host != nullptr) tick();
  });
}

// A service whose cameras are neither shown nor shared is not woken up. But an RDP host is not told
// of what others share in its name, such as lumsar-cameras.
void CameraView::refresh() {
  const Session::State state = m_host->state();
  if (!state.initialised) {
    m_list.reset();
    m_serviceAnswers = true;
  }
  const bool isKnown = m_list && m_serviceAnswers;
  const bool mayChange = m_settings.protocol == Protocol::Rdp && state.answered;
  const bool asks = m_isWatched || mayChange || !m_model.shared().empty() || !isKnown;
  if (asks && state.initialised) return ask();
  show(describe());
}

// One question at a time: a camera service that hangs answers late.
void CameraView::ask() {
  if (std::exchange(m_isAsking, true)) return;
  m_asksAgain = false;
  m_host->list([this](std::optional<CameraList> list) {
    post([this, list = std::move(list)] {
      m_isAsking = false;
      listed(list);
      show(describe());
      if (m_asksAgain) ask();
    });
  });
}

// The answer to a question that is under way may be older than what has happened.
void CameraView::askAgain() {
  m_asksAgain = true;
  ask();
}

// What was last listed holds until there is another list: a camera may still be on.
void CameraView::listed(std::optional<CameraList> list) {
  m_serviceAnswers = list.has_value();
  if (!list) return;
  if (m_list) noteUses(*list, *m_list);
  m_list = std::move(list);
}

CameraModel CameraView::describe() const {
  CameraModel model =
      describeCameras(m_host->state(), m_list, m_serviceAnswers, m_settings.protocol);
  model.canRemember = m_choices->canRemember();
  model.remembered = m_choices->cameras().has_value();
  model.notSaved = m_notSaved;
  return model;
}

void CameraView::show(CameraModel model, bool always) {
  if (m_hasFailed && model.problem != Problem::Failure) return;
  if (model == m_model && !always) return;
  m_model = std::move(model);
  m_actions.show(m_model);
}

}  // namespace lumsar::host
