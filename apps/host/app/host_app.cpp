#include "app/host_app.h"

#include <QJsonDocument>
#include <asio/post.hpp>
#include <asio/signal_set.hpp>
#include <asio/steady_timer.hpp>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <optional>

#include "app/console.h"
#include "app/summary.h"
#include "base/text/format.h"
#include "json/json.h"
#include "session/camera_host.h"

namespace lumsar::host {

namespace {

// With more, no further ones are read from a script that writes faster than they are done.
constexpr int kMaxWaitingCommands = 16;
// How long a camera service that hangs may delay the end.
constexpr std::chrono::seconds kStopTimeout{2};

class HostApp {
 public:
  HostApp(const Options& options, const MakeTransport& makeTransport)
      : m_options(options),
        m_report(options.json),
        m_log(m_report, options.verbose),
        m_host(m_loop, m_report,
               {.plugin = options.plugin,
                .driver = options.driver,
                .json = options.json,
                .status = [this] { return status(); },
                .onHandshake = [this] { return startScript(); },
                .onRefused = [this] { asio::post(m_loop, [this] { fail(); }); }}),
        m_transport(makeTransport(m_loop, m_host.queue(), m_host.inbox(), options)),
        m_signals(m_loop, SIGINT, SIGTERM),
        m_timer(m_loop) {}

  int run() {
    watchSignals();
    m_host.start(*m_transport);
    if (m_options.interactive()) {
      startConsole();
    } else {
      waitForVm();
    }
    m_loop.run();
    return finish();
  }

 private:
  void watchSignals() {
    // A closed pipe of our output must not end the program without unsharing the cameras.
    std::signal(SIGPIPE, SIG_IGN);
    // Unless we are to outlive the terminal.
    if (std::signal(SIGHUP, SIG_DFL) == SIG_IGN) {
      std::signal(SIGHUP, SIG_IGN);
    } else {
      m_signals.add(SIGHUP);
    }
    m_signals.async_wait([this](std::error_code error, int) {
      if (error) return;
      if (!m_options.commands.empty() && !m_scriptDone) m_failed = true;
      stop();
    });
  }

  void startConsole() {
    m_console.emplace(
        [this](const std::string& line) {
          ++m_waitingCommands;
          m_host.run({line}, [this](bool quits) {
            --m_waitingCommands;
            if (quits) asio::post(m_loop, [this] { stop(); });
          });
        },
        // After the commands that wait.
        [this] { m_host.run({}, [this](bool) { asio::post(m_loop, [this] { stop(); }); }); },
        [this] { return m_waitingCommands > kMaxWaitingCommands; });
    if (m_console->isTerminal()) {
      m_report.setSink([this](const std::string& line) { m_console->print(line); });
    }
  }

  void waitForVm() {
    m_timer.expires_after(m_options.timeout);
    m_timer.async_wait([this](std::error_code error) {
      if (error || m_scriptStarted) return;
      m_report.say(whatIsMissing());
      fail();
    });
  }

  std::string whatIsMissing() const {
    const auto time = base::text("within {} ms", m_options.timeout.count());
    const Session::State state = m_host.state();
    if (!state.channelOpen) {
      return base::text("no channel to the VM {}; the lines above say why", time);
    }
    if (!state.initialised) {
      return base::text("no camera service {}; start lumsar-camera-service", time);
    }
    return base::text("the VM has not answered {}; is the guest agent running?", time);
  }

  // On the plug-in's thread. False when the script has run already or there is none.
  bool startScript() {
    if (m_options.interactive() || m_scriptStarted.exchange(true)) return false;
    m_host.run(m_options.commands,
               [this](bool /*quits*/) { asio::post(m_loop, [this] { scriptDone(); }); });
    return true;
  }

  // Cameras that are not shared as asked are not worth the rest of the time.
  void scriptDone() {
    m_scriptDone = true;
    if (m_host.commands().anyFailed()) return fail();
    m_timer.expires_after(m_options.duration.value_or(std::chrono::milliseconds(0)));
    m_timer.async_wait([this](std::error_code error) {
      if (!error) stop();
    });
  }

  void fail() {
    m_failed = true;
    stop();
  }

  void stop() {
    if (m_stopping) return;
    m_stopping = true;
    m_summary = summaryOf(m_host, m_options.driver.protocol);
    m_signals.cancel();
    m_host.stop([this] {
      m_hostStopped = true;
      m_loop.stop();
    });
    m_timer.expires_after(kStopTimeout);
    m_timer.async_wait([this](std::error_code error) {
      if (error) return;
      m_report.say("the camera service does not answer; ending without it");
      m_loop.stop();
    });
  }

  int finish() {
    m_transport->stop();
    m_report.setSink(nullptr);
    // A user at a terminal has seen what failed.
    if (!m_console || !m_console->isTerminal()) m_failed |= m_host.commands().anyFailed();
    m_console.reset();
    if (m_options.json) std::printf("%s\n", json::compact(m_summary).c_str());
    const int status = m_failed ? 1 : 0;
    if (!m_hostStopped) {
      // The plug-in's thread cannot be interrupted; the system closes its connection.
      std::fflush(stdout);
      std::_Exit(status);
    }
    return status;
  }

  std::string status() const {
    if (!m_options.json) return describeStatus(m_host);
    return QJsonDocument(statusOf(m_host, m_options.driver.protocol))
        .toJson()
        .trimmed()
        .toStdString();
  }

  const Options& m_options;
  Report m_report;
  PluginLog m_log;
  asio::io_context m_loop;
  std::atomic<bool> m_scriptStarted = false;
  std::atomic<int> m_waitingCommands = 0;
  CameraHost m_host;
  std::unique_ptr<Transport> m_transport;
  asio::signal_set m_signals;
  asio::steady_timer m_timer;
  std::optional<Console> m_console;
  QJsonObject m_summary;
  bool m_scriptDone = false;
  bool m_stopping = false;
  bool m_hostStopped = false;
  bool m_failed = false;
};

}  // namespace

int runHostProgram(int argc, char** argv, const HostCommandLine& commandLine,
                   const MakeTransport& makeTransport) {
  return base::runProgram(commandLine.program.c_str(), [&] {
    const auto options = parseOptions(argc, argv, commandLine);
    return options ? HostApp(*options, makeTransport).run() : 0;
  });
}

}  // namespace lumsar::host
