#include "app/host_app.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <asio/post.hpp>
#include <asio/signal_set.hpp>
#include <asio/steady_timer.hpp>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <future>
#include <optional>
#include <stdexcept>

#include "app/commands.h"
#include "app/console.h"
#include "session/report.h"
#include "session/service_watch.h"
#include "session/session.h"
#include "session/worker.h"

namespace lumsar::host {

namespace {

// With more, no further ones are read from a script that writes faster than they are done.
constexpr std::size_t kMaxWaitingCommands = 16;

class HostApp {
 public:
  HostApp(const Options& options, const MakeTransport& makeTransport)
      : m_options(options),
        m_report(options.json),
        m_log(m_report, options.verbose),
        m_plugin(options.plugin),
        m_transport(makeTransport(m_loop, m_queue, options)),
        m_session(m_loop, m_plugin, options.driver, m_queue, *m_transport, m_report),
        m_commands(
            m_plugin, m_report, [this] { return onLoop<std::string>([this] { return status(); }); },
            [this](int id) { return onLoop<int>([this, id] { return m_plugin.ShareAll(id); }); },
            options.json),
        m_signals(m_loop, SIGINT, SIGTERM),
        m_timer(m_loop),
        m_serviceWatch(
            m_loop, m_worker, [this] { return m_session.serviceConnection(); },
            [this] { return m_commands.serviceAnswers(); },
            [this] { m_session.recover("it does not answer"); }) {
    m_queue.setWake([this] { m_transport->wake(); });
    m_session.setOnGreeted([this](bool sharesAll) { greeted(sharesAll); });
    m_session.setOnRefused([this] {
      m_failed = true;
      stop();
    });
  }

  int run() {
    // A reader of our output that goes away must not take the cameras from the VM without a word.
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
    m_session.start();
    if (m_options.interactive()) {
      startConsole();
    } else {
      waitForVm();
    }
    if (m_options.driver.kind == Kind::Rdp) m_serviceWatch.start();
    m_loop.run();
    return finish();
  }

 private:
  // Carries out `function` on the main loop and waits for it; called on the worker.
  template <class Result>
  Result onLoop(std::function<Result()> function) {
    auto task = std::make_shared<std::packaged_task<Result()>>(std::move(function));
    auto result = task->get_future();
    asio::post(m_loop, [task] { (*task)(); });
    // A loop that has ended answers no more.
    while (result.wait_for(std::chrono::milliseconds(50)) != std::future_status::ready) {
      if (m_loop.stopped()) return Result();
    }
    return result.get();
  }

  void startConsole() {
    m_console.emplace(
        [this](const std::string& line) {
          m_worker.post([this, line] {
            if (!m_commands.run(line)) asio::post(m_loop, [this] { stop(); });
          });
        },
        [this] { m_worker.post([this] { asio::post(m_loop, [this] { stop(); }); }); },
        [this] { return m_worker.waiting() > kMaxWaitingCommands; });
    if (m_console->isTerminal()) {
      m_report.setSink([this](const std::string& line) { m_console->print(line); });
    }
  }

  void waitForVm() {
    m_timer.expires_after(m_options.waitFor);
    m_timer.async_wait([this](std::error_code error) {
      if (error || m_scriptStarted) return;
      m_report.say("the VM has not answered within " + std::to_string(m_options.waitFor.count()) +
                   " ms; is its side running, and the camera service?");
      m_failed = true;
      stop();
    });
  }

  void greeted(bool sharesAll) {
    if (m_scriptStarted || m_options.interactive()) {
      return shareAgain(sharesAll);
    }
    m_scriptStarted = true;
    m_timer.cancel();
    m_worker.post([this] {
      for (const std::string& command : m_options.commands) {
        if (!m_commands.run(command)) break;
      }
      asio::post(m_loop, [this] { scriptDone(); });
    });
  }

  // A VM may greet faster than the camera service answers: one turn that waits is enough.
  void shareAgain(bool sharesAll) {
    if (m_shareAgainWaits.exchange(true)) return;
    m_worker.post([this, sharesAll] {
      m_shareAgainWaits = false;
      m_commands.shareAgain(sharesAll);
    });
  }

  void scriptDone() {
    m_scriptDone = true;
    m_timer.expires_after(m_options.runFor.value_or(std::chrono::milliseconds(0)));
    m_timer.async_wait([this](std::error_code error) {
      if (!error) stop();
    });
  }

  void stop() {
    if (m_stopping) return;
    m_stopping = true;
    m_summary = summary();
    m_timer.cancel();
    m_serviceWatch.stop();
    m_signals.cancel();
    m_session.stop();
    m_loop.stop();
  }

  int finish() {
    m_report.setSink(nullptr);
    // A user at a terminal has seen what failed.
    if (!m_console || !m_console->isTerminal()) m_failed |= m_commands.anyFailed();
    m_console.reset();
    if (m_options.json) {
      std::printf("%s\n", QJsonDocument(m_summary).toJson(QJsonDocument::Compact).constData());
    }
    return m_failed ? 1 : 0;
  }

  QJsonObject summary() const {
    const Session::State& state = m_session.state();
    const SendQueue::Counters counters = m_queue.counters();
    const auto number = [](std::uint64_t value) { return static_cast<double>(value); };
    QJsonArray commands;
    for (const auto& result : m_commands.results()) {
      commands.append(
          QJsonObject{{QStringLiteral("command"), QString::fromStdString(result.command)},
                      {QStringLiteral("status"), result.status},
                      {QStringLiteral("answer"), QString::fromStdString(result.answer)}});
    }
    return {
        {QStringLiteral("kind"),
         m_options.driver.kind == Kind::Rdp ? QStringLiteral("rdp") : QStringLiteral("spice")},
        {QStringLiteral("serviceConnected"), state.initialised},
        {QStringLiteral("channelOpen"), state.channelOpen},
        {QStringLiteral("handshakes"), number(state.handshakes)},
        {QStringLiteral("recoveries"), number(state.recoveries)},
        {QStringLiteral("deviceChanges"), number(state.deviceChanges)},
        {QStringLiteral("bytesFromVm"), number(state.bytesFromVm)},
        {QStringLiteral("strayBytes"), number(state.strayBytes)},
        {QStringLiteral("fromPlugin"),
         QJsonObject{{QStringLiteral("frames"), number(counters.fromPlugin.frames)},
                     {QStringLiteral("bytes"), number(counters.fromPlugin.bytes)},
                     {QStringLiteral("latencyMedianUs"), number(counters.fromPlugin.medianLatency)},
                     {QStringLiteral("latencyWorstUs"), number(counters.fromPlugin.worstLatency)}}},
        {QStringLiteral("toVm"),
         QJsonObject{{QStringLiteral("frames"), number(counters.framesSent)},
                     {QStringLiteral("bytes"), number(counters.bytesSent)},
                     {QStringLiteral("dropped"), number(counters.framesDropped)},
                     {QStringLiteral("refused"), number(counters.messagesRefused)}}},
        {QStringLiteral("commands"), commands},
    };
  }

  std::string status() const {
    QJsonObject object = summary();
    object.remove(QStringLiteral("commands"));
    return QJsonDocument(object).toJson().trimmed().toStdString();
  }

  const Options& m_options;
  Report m_report;
  PluginLog m_log;
  asio::io_context m_loop;
  SendQueue m_queue;
  Plugin m_plugin;
  std::unique_ptr<Transport> m_transport;
  Session m_session;
  Commands m_commands;
  asio::signal_set m_signals;
  asio::steady_timer m_timer;
  ServiceWatch m_serviceWatch;
  std::optional<Console> m_console;
  QJsonObject m_summary;
  std::atomic<bool> m_shareAgainWaits = false;
  bool m_scriptStarted = false;
  bool m_scriptDone = false;
  bool m_stopping = false;
  bool m_failed = false;
  Worker m_worker;  // last: its jobs use all of the above
};

}  // namespace

int runHostProgram(int argc, char** argv, const ProgramText& text,
                   const MakeTransport& makeTransport) {
  try {
    Options options;
    if (const auto exitCode = parseOptions(argc, argv, text, options)) return *exitCode;
    return HostApp(options, makeTransport).run();
  } catch (const UsageError& error) {
    std::fprintf(stderr, "%s: %s. See %s --help.\n", text.name, error.what(), text.name);
    return 2;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", text.name, error.what());
    return 1;
  }
}

}  // namespace lumsar::host
