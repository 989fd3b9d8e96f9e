#include "session/camera_host.h"

#include <asio/post.hpp>
#include <exception>
#include <utility>

#include "base/text/format.h"

namespace lumsar::host {

CameraHost::CameraHost(asio::io_context& loop, Report& report, Settings settings)
    : m_loop(loop),
      m_report(report),
      m_settings(std::move(settings)),
      m_inbox(std::make_shared<Inbox>(m_pluginLoop.get_executor())),
      m_plugin(m_settings.plugin),
      m_commands(m_plugin, report, m_settings.status, m_settings.json),
      m_session(m_pluginLoop.get_executor(), loop, m_plugin, m_settings.driver, m_queue, report,
                {.onHandshake = [this](bool sharesAll) { handshake(sharesAll); },
                 .onRefused = m_settings.onRefused,
                 .onService = [this] { m_serviceWatch.askSoon(); },
                 .onDeviceChange = m_settings.onDeviceChange,
                 .onControl = [this] { post([this] { m_commands.cameras(); }); },
                 .showsJson = m_settings.json}),
      m_serviceWatch(
          m_pluginLoop.get_executor(), [this] { return m_session.state().initialised; },
          [this] { return m_commands.serviceAnswers(); },
          [this] { m_session.recover("it does not answer"); }),
      m_pluginThread([this] { serve(); }) {
  onServiceClosed([this] { post([this] { m_serviceWatch.askSoon(); }); });
}

CameraHost::~CameraHost() {
  onServiceClosed({});
  m_inbox->end();
  m_pluginLoop.stop();
  m_pluginThread.join();
}

// No exception may end somebody else's process: the host goes on without cameras.
void CameraHost::serve() {
  while (true) {
    try {
      m_pluginLoop.run();
      return;
    } catch (const std::exception& error) {
      m_report.say(base::text("no more cameras: {}", error.what()));
    }
    m_stopping = true;
    m_inbox->end();
    m_serviceWatch.stop();
    m_session.stop();
    m_settings.onRefused();
  }
}

void CameraHost::start(Transport& transport) {
  m_queue.setWake([&transport] { transport.wake(); });
  m_inbox->listen(m_session);
  post([this] {
    m_session.start();
    if (!m_session.tellsOfLostService()) m_serviceWatch.start();
  });
  transport.start();
}

void CameraHost::stop(std::function<void()> done) {
  m_stopping = true;
  m_inbox->end();
  asio::post(m_pluginLoop, [this, done = std::move(done)] {
    m_serviceWatch.stop();
    m_session.stop();
    asio::post(m_loop, done);
  });
}

void CameraHost::post(std::function<void()> job) {
  asio::post(m_pluginLoop, [this, job = std::move(job)] {
    if (!m_stopping) job();
  });
}

void CameraHost::run(std::vector<std::string> commands, std::function<void(bool quits)> done) {
  post([this, commands = std::move(commands), done = std::move(done)] {
    m_scripts.push_back({{commands.begin(), commands.end()}, done});
    if (m_scripts.size() == 1) runScripts();
  });
}

void CameraHost::control(std::function<void(Commands&)> action) {
  post([this, action = std::move(action)] {
    action(m_commands);
    m_serviceWatch.askSoon();
  });
}

void CameraHost::list(std::function<void(std::optional<CameraList>)> answer) {
  post([this, answer = std::move(answer)] {
    std::optional<CameraList> cameras = m_commands.cameras();
    if (!cameras) m_serviceWatch.askSoon();
    answer(std::move(cameras));
  });
}

// One command after another; while a connection is made, what the VM sends comes first.
void CameraHost::runScripts() {
  while (!m_scripts.empty()) {
    Script& script = m_scripts.front();
    bool quits = false;
    while (!script.commands.empty() && !quits) {
      if (m_stopping) return;
      quits = !m_commands.run(script.commands.front());
      script.commands.pop_front();
      m_serviceWatch.askSoon();
      if (m_commands.isConnecting()) return awaitConnection();
    }
    const auto done = std::move(script.done);
    m_scripts.pop_front();
    done(quits);
  }
}

void CameraHost::awaitConnection() {
  m_connectionTimer.expires_after(Commands::kCheckInterval);
  m_connectionTimer.async_wait([this](std::error_code error) {
    if (error || m_stopping) return;
    m_commands.checkConnection();
    if (m_commands.isConnecting()) return awaitConnection();
    m_serviceWatch.askSoon();
    runScripts();
  });
}

// A VM may complete handshakes faster than the camera service answers: one turn that waits is
// enough.
void CameraHost::handshake(bool sharesAll) {
  if (m_settings.onHandshake()) return;
  if (std::exchange(m_shareAgainWaits, true)) return;
  post([this, sharesAll] {
    m_shareAgainWaits = false;
    m_commands.shareAgain(sharesAll);
    m_settings.onSharedAgain();
  });
}

}  // namespace lumsar::host
