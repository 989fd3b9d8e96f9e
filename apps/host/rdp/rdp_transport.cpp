#include "rdp/rdp_transport.h"

#include <winpr/ssl.h>
#include <winpr/wlog.h>

#include <algorithm>
#include <asio/post.hpp>
#include <csignal>
#include <exception>

namespace lumsar::host {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kFirstBackOff{250};
constexpr milliseconds kLongestBackOff{5000};
constexpr milliseconds kEndInterval{100};
// How often to try a user whom the server may be refusing; more could lock the account.
constexpr int kMaxLogOns = 3;

void quietLibrary(bool verbose) {
  wLog* root = WLog_GetRoot();
  WLog_SetLogAppenderType(root, WLOG_APPENDER_CONSOLE);
  // Standard output belongs to the program.
  char stream[] = "stderr";
  WLog_ConfigureAppender(WLog_GetLogAppender(root), "outputstream", stream);
  WLog_SetLogLevel(root, verbose ? WLOG_WARN : WLOG_OFF);
}

}  // namespace

RdpTransport::RdpTransport(asio::io_context& loop, SendQueue& queue, Inbox& inbox, RdpTarget target)
    : m_queue(queue),
      m_inbox(inbox),
      m_directory(std::in_place),
      m_target(std::move(target)),
      m_watch(loop),
      m_work(asio::make_work_guard(loop)) {
  m_target.stateDirectory = m_directory->path().string();
  quietLibrary(m_target.verbose);
  winpr_InitializeSSL(WINPR_SSL_INIT_DEFAULT);
  std::signal(SIGPIPE, SIG_IGN);  // the library writes to sockets without asking for this
}

// NOLINTNEXTLINE(bugprone-exception-escape): as in the header
RdpTransport::~RdpTransport() {
  stop();
}

void RdpTransport::start() {
  m_thread = std::thread([this] { run(); });
}

void RdpTransport::stop() {
  if (!m_thread.joinable()) return;
  m_watch.cancel();
  m_work.reset();
  m_inbox.end();
  {
    std::unique_lock lock(m_mutex);
    m_stopping = true;
    m_changed.notify_all();
    // The library loses a request to end that comes before it has begun.
    while (m_attempt != nullptr) {
      m_attempt->client.end();
      m_changed.wait_for(lock, kEndInterval);
    }
  }
  m_thread.join();
  m_directory.reset();
}

void RdpTransport::wake() {
  const std::lock_guard lock(m_mutex);
  if (m_attempt != nullptr) m_attempt->client.wake();
}

void RdpTransport::run() {
  base::BackOff backOff(kFirstBackOff, kLongestBackOff);
  bool wasConnected = false;
  int refusals = 0;
  while (true) {
    const RdpClient::Outcome outcome = attempt();
    // A user who was accepted once is not refused now.
    wasConnected = wasConnected || outcome.wasConnected;
    if (outcome.atLogOn && !wasConnected) ++refusals;
    if (outcome.permanent || refusals == kMaxLogOns) return m_inbox.refused(outcome.why);
    m_inbox.unavailable(outcome.why);
    if (outcome.lasted) backOff.reset();
    if (!pause(backOff.next())) return;
  }
}

RdpClient::Outcome RdpTransport::attempt() {
  RdpClient::Outcome outcome;
  try {
    Attempt current(m_queue, m_inbox, m_target, [this] { watchSoon(); });
    if (!show(&current)) return outcome;
    outcome = current.client.run();
    show(nullptr);
  } catch (const std::exception& error) {
    outcome.why = error.what();
  }
  return outcome;
}

// Lets the other threads see the attempt; false when it is time to stop.
bool RdpTransport::show(Attempt* attempt) {
  const std::lock_guard lock(m_mutex);
  m_attempt = m_stopping ? nullptr : attempt;
  m_changed.notify_all();
  if (m_attempt != nullptr) watchSoon();
  return !m_stopping;
}

// False when it is time to stop.
bool RdpTransport::pause(milliseconds time) {
  std::unique_lock lock(m_mutex);
  return !m_changed.wait_for(lock, time, [this] { return m_stopping; });
}

void RdpTransport::watchSoon() {
  asio::post(m_watch.get_executor(), [this] { watch(); });
}

// Ends an attempt at its deadline, and again while it has not ended: the library loses a request
// that comes before it has begun.
void RdpTransport::watch() {
  std::optional<std::chrono::steady_clock::time_point> deadline;
  {
    const std::lock_guard lock(m_mutex);
    if (m_attempt == nullptr || m_stopping) return;
    m_attempt->client.endIfSilent();
    deadline = m_attempt->client.answerDeadline();
  }
  if (!deadline) return;
  m_watch.expires_at(std::max(*deadline, std::chrono::steady_clock::now() + kEndInterval));
  m_watch.async_wait([this](std::error_code error) {
    if (!error) watch();
  });
}

}  // namespace lumsar::host
