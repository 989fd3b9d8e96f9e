#include "outputs/pipewire/pipewire_loop.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "base/errors.h"

namespace lumsar::agent {
namespace {

using namespace std::chrono_literals;

constexpr auto kFirstRetry = 250ms;
constexpr auto kLongestRetry = 10s;

PipewireLoop& loopOf(void* data) {
  return *static_cast<PipewireLoop*>(data);
}

template <class Object>
Object* made(Object* object) {
  if (object == nullptr) {
    throw base::Failure(base::text("cannot use PipeWire's library: {}", base::systemError()));
  }
  return object;
}

}  // namespace

// PipeWire tells its clients of the end of a connection as of any other error.
const pw_core_events PipewireLoop::kEvents = [] {
  pw_core_events events = {};
  events.version = PW_VERSION_CORE_EVENTS;
  events.info = [](void* data, const pw_core_info*) {
    guarded([data] { loopOf(data).answered(); });
  };
  events.error = [](void* data, std::uint32_t id, int, int result, const char*) {
    if (id == PW_ID_CORE && result == -EPIPE) guarded([data] { loopOf(data).lost(); });
  };
  return events;
}();

PipewireLoop::PipewireLoop()
    : m_mainLoop(made(pw_main_loop_new(nullptr))),
      m_context(made(pw_context_new(&loop(), nullptr, 0))),
      m_backOff(kFirstRetry, kLongestRetry) {
  m_event = made(pw_loop_add_event(
      &loop(), [](void* data, std::uint64_t) { guarded([data] { loopOf(data).work(); }); }, this));
  m_timer = made(pw_loop_add_timer(
      &loop(), [](void* data, std::uint64_t) { guarded([data] { loopOf(data).timeOver(); }); },
      this));
  updateIn(1ns);
  m_thread = std::thread([this] { pw_main_loop_run(m_mainLoop.get()); });
}

PipewireLoop::~PipewireLoop() {
  m_ending = true;
  wake();
  m_thread.join();
  disconnect();
}

void PipewireLoop::add(PipewireClient& client) {
  {
    const std::lock_guard lock(m_mutex);
    m_added.push_back(&client);
  }
  wake();
}

void PipewireLoop::wake() {
  pw_loop_signal_event(&loop(), m_event);
}

void PipewireLoop::updateIn(std::chrono::nanoseconds delay) {
  const auto due = std::chrono::steady_clock::now() + delay;
  if (due >= m_timerDue) return;
  m_timerDue = due;
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(delay);
  timespec time = {};
  time.tv_sec = seconds.count();
  time.tv_nsec = (delay - seconds).count();
  pw_loop_update_timer(&loop(), m_timer, &time, nullptr, false);
}

void PipewireLoop::work() {
  admitClients();
  endClients();  // before others are updated: a new camera may have the name of one that ends
  if (m_isLost) {
    disconnect();
    wait("it has ended");
  }
  updateClients();
  if (m_ending) pw_main_loop_quit(m_mainLoop.get());
}

void PipewireLoop::admitClients() {
  const std::lock_guard lock(m_mutex);
  m_clients.insert(m_clients.end(), m_added.begin(), m_added.end());
  m_added.clear();
}

void PipewireLoop::endClients() {
  const auto first =
      std::stable_partition(m_clients.begin(), m_clients.end(),
                            [](const PipewireClient* client) { return !client->isEnding(); });
  const std::vector<PipewireClient*> ending(first, m_clients.end());
  m_clients.erase(first, m_clients.end());
  for (PipewireClient* client : ending) client->ended();
}

void PipewireLoop::updateClients() {
  for (PipewireClient* client : m_clients) {
    guarded([&] { client->update(m_isConnected ? m_core.get() : nullptr); });
  }
}

void PipewireLoop::timeOver() {
  m_timerDue = std::chrono::steady_clock::time_point::max();
  m_core ? updateClients() : connect();
}

void PipewireLoop::connect() {
  m_core.reset(pw_context_connect(m_context.get(),
                                  pw_properties_new(PW_KEY_APP_NAME, "lumsar-agent", nullptr), 0));
  if (!m_core) return wait(errno == EHOSTDOWN ? "it does not run" : base::systemError());
  m_listener = {};
  pw_proxy_add_object_listener(reinterpret_cast<pw_proxy*>(m_core.get()), &m_listener, &kEvents,
                               this);
}

void PipewireLoop::wait(const std::string& why) {
  updateIn(m_backOff.next());
  if (std::exchange(m_loggedWaiting, true)) return;
  base::logWarning(
      "no connection to PipeWire: {}; waiting for it. Does it run in the session of this user? "
      "PIPEWIRE_REMOTE names the socket of another one",
      why);
}

// What PipeWire says first, and again whenever it changes.
void PipewireLoop::answered() {
  if (std::exchange(m_isConnected, true)) return;
  m_backOff.reset();
  m_loggedWaiting = false;
  base::logInfo("connected to PipeWire");
  updateClients();
}

// A connection may not be destroyed in its own callback.
void PipewireLoop::lost() {
  m_isLost = true;
  wake();
}

void PipewireLoop::disconnect() {
  m_isLost = m_isConnected = false;
  updateClients();
  if (!m_core) return;
  spa_hook_remove(&m_listener);
  m_core.reset();
}

}  // namespace lumsar::agent
