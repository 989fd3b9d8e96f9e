#include "session/session.h"

#include <asio/post.hpp>
#include <cstring>
#include <utility>

#include "base/text/format.h"
#include "driver/configuration.h"
#include "json/json.h"
#include "protocol/hello.h"
#include "session/change_text.h"

namespace lumsar::host {

namespace {

constexpr std::chrono::milliseconds kFirstBackOff{200};
constexpr std::chrono::milliseconds kLongestBackOff{5000};
// How long the VM may be silent on an open channel before the user is told.
constexpr std::chrono::seconds kSilence{5};
// How long handing on one message may take, and each further part of a large one. Nothing but a
// camera service that has stopped reading needs longer, and each message would wait for it.
constexpr std::chrono::milliseconds kPassTimeout{1500};
constexpr std::size_t kBytesAMillisecond = 8U << 10U;

}  // namespace

// Events come on the plug-in's threads, one of which may outlive the session.
struct Session::EventGate {
  std::mutex mutex;
  Session* session = nullptr;
  asio::any_io_executor executor;
};

Session::Session(const asio::any_io_executor& executor, asio::io_context& loop,
                 const Plugin& plugin, const DriverSetup& setup, SendQueue& queue, Report& report,
                 Actions actions)
    : m_plugin(plugin),
      m_queue(queue),
      m_report(report),
      m_actions(std::move(actions)),
      m_calls(loop),
      m_gate(std::make_shared<EventGate>()),
      m_retry(executor),
      m_silence(executor),
      m_backOff(kFirstBackOff, kLongestBackOff) {
  m_gate->session = this;
  m_gate->executor = executor;
  m_driver = makeDriver(
      plugin, setup, queue, [gate = m_gate](RedirEvent event, const char* data, int length) {
        const std::lock_guard lock(gate->mutex);
        if (gate->session == nullptr) return;
        std::string copy(data != nullptr ? data : "", static_cast<std::size_t>(length));
        asio::post(gate->executor, [session = gate->session, event, copy = std::move(copy)] {
          session->pluginEvent(event, copy);
        });
      });
  if (setup.configFile.empty()) return;
  for (const std::string& warning : configurationWarnings(json::readFile(setup.configFile))) {
    m_report.say(base::text("warning: {}: {}", setup.configFile, warning));
  }
}

Session::~Session() {
  const std::lock_guard lock(m_gate->mutex);
  m_gate->session = nullptr;
}

Session::State Session::state() const {
  const std::lock_guard lock(m_mutex);
  return m_state;
}

template <class Change>
void Session::update(Change change) {
  const std::lock_guard lock(m_mutex);
  change(m_state);
}

void Session::stop() {
  m_stopped = true;
  m_retry.cancel();
  m_silence.cancel();
  // The service unshares everything when its connection ends.
  if (m_state.initialised) m_driver->deInit();
  update([](State& state) { state.initialised = state.channelOpen = false; });
}

void Session::initialise() {
  std::string why;
  try {
    // What fails is said below, in words and with the time of the next attempt.
    const PluginLog::Muted muted;
    const int status = m_driver->init();
    if (status == STATUS_OK) return initialised();
    // What failed while connecting has left the plug-in initialised.
    if (status != STATUS_INIT_FAILED) m_driver->deInit();
    why = statusText(status);
  } catch (const std::exception& error) {
    why = error.what();
  }
  const auto delay = m_backOff.next();
  m_report.note("no camera service", base::text(": {}; retrying in {} ms", why, delay.count()));
  initialiseLater(delay);
}

void Session::initialised() {
  m_backOff.reset();
  update([](State& state) { state.initialised = true; });
  m_report.note("connected to the camera service");
  m_actions.onService();
  if (!m_state.channelOpen) return;
  m_driver->repeatHandshake();
  expectWord();
}

void Session::initialiseLater(std::chrono::milliseconds delay) {
  m_retry.expires_after(delay);
  // A timer whose turn has come is not cancelled.
  m_retry.async_wait([this](std::error_code error) {
    if (!error && !m_stopped) initialise();
  });
}

void Session::recover(const std::string& why) {
  if (!m_state.initialised) return;
  m_report.note("camera service lost: ", why);
  update([](State& state) {
    state.initialised = false;
    ++state.recoveries;
  });
  m_driver->deInit();
  m_backOff.reset();
  initialiseLater(kFirstBackOff);
}

void Session::channelOpened() {
  m_report.note("channel to the VM is open");
  update([](State& state) {
    state.channelOpen = true;
    state.answered = state.strayed = false;
  });
  m_deframer.reset();
  m_warned.clear();
  m_unavailable.clear();
  m_queue.open();
  m_driver->channelEvent(CHANNEL_EVENT_OPENED);
  expectWord();
}

void Session::expectWord() {
  m_silence.expires_after(kSilence);
  m_silence.async_wait([this](std::error_code error) {
    if (error) return;
    m_report.note(
        "the VM sends nothing: is lumsar-agent running in it, and does the server allow the "
        "channel?");
  });
}

void Session::channelClosed(const std::string& why) {
  m_report.note("channel to the VM is closed: ", why);
  m_silence.cancel();
  update([](State& state) { state.channelOpen = false; });
  m_driver->channelEvent(CHANNEL_EVENT_CLOSED);
  // Only now: what closing itself has sent must not reach the next VM.
  m_queue.close();
}

void Session::channelReceived(std::span<const unsigned char> bytes) {
  update([&](State& state) { state.bytesFromVm += bytes.size(); });
  m_deframer.append(bytes);
  while (true) {
    const auto message = m_deframer.next();
    reportDropped();
    if (message.empty()) return;
    m_silence.cancel();
    handle(message);
  }
}

void Session::reportDropped() {
  const std::size_t dropped = m_deframer.takeDropped();
  if (dropped == 0) return;
  update([&](State& state) {
    state.strayBytes += dropped;
    state.strayed = true;
  });
  warnOnce(Warning::StrayBytes, "the VM sent ",
           base::text("{} bytes that are not a message; dropped", dropped));
}

void Session::channelUnavailable(const std::string& why) {
  if (why == m_unavailable) return;
  m_unavailable = why;
  m_report.note("no channel to the VM: ", why);
}

void Session::channelRefused(const std::string& why) {
  m_report.note("no channel to the VM: ", why);
  m_actions.onRefused();
}

void Session::handle(std::span<unsigned char> message) {
  if (!m_state.initialised) return;  // the plug-in could only complain
  const RedirMsgHeader header = readHeader(message.data());
  if (header.type == MSG_HELLO) return handleHello(message);
  // An RDP agent's part of the handshake would undo ours.
  if (header.type == MSG_CHANNEL_OPENED && !m_driver->vmOpensChannel()) {
    return warnOnce(
        Warning::RdpAgent,
        "the guest agent takes this for an RDP channel; run lumsar-agent without --protocol rdp");
  }
  if (header.type == MSG_CHANNEL_OPENED && !m_restarts.allow()) {
    return warnOnce(Warning::Restarts,
                    "the VM restarts the handshake again and again; not all of it is answered");
  }
  pass(message);
}

void Session::handleHello(std::span<unsigned char> message) {
  const auto answer = protocol::readHello(message);
  if (!answer) {
    return warnOnce(Warning::ShortHello, "the VM sent a HELLO without its payload; dropped");
  }
  RedirMsgHeader header = answer->header;
  if ((header.capabilities & CAP_SHARE_ALL) != 0 && !m_driver->vmMayShareAll()) {
    // The plug-in obeys it whoever the host is.
    header.capabilities &= ~std::uint32_t{CAP_SHARE_ALL};
    std::memcpy(message.data(), &header, kHeaderSize);
    warnOnce(Warning::SharesAll, "the VM asks for all cameras; only the user shares them");
  }
  const SendQueue::Counters sent = m_queue.counters();
  if (answer->payload.token != sent.helloToken) {
    pass(message);
    return warnOnce(
        Warning::OlderHello, "the VM answered an older HELLO: ",
        base::text("token {} instead of {}; dropped", answer->payload.token, sent.helloToken));
  }
  // A VM that repeats itself must not make us do so.
  if (std::exchange(m_answeredHello, sent.hellos) == sent.hellos) return;
  pass(message);
  if (m_state.initialised) handshakeCompleted(header);
}

void Session::pass(std::span<unsigned char> message) {
  const auto timeout =
      kPassTimeout + std::chrono::milliseconds(message.size() / kBytesAMillisecond);
  const bool inTime = m_calls.run(
      timeout, [&] { m_plugin.Handler(message.data(), static_cast<int>(message.size())); },
      [this] { m_report.note("the camera service has stopped reading; waiting for it"); });
  if (!inTime) return recover("it has stopped reading");
  m_actions.onService();
}

void Session::handshakeCompleted(const RedirMsgHeader& header) {
  m_report.note("VM answered, version ", base::text("{}.{}", header.vmMajor, header.vmMinor));
  update([](State& state) {
    ++state.handshakes;
    state.answered = true;
  });
  m_actions.onHandshake((header.capabilities & CAP_SHARE_ALL) != 0);
}

// Once per channel: the VM may do it any number of times.
void Session::warnOnce(Warning warning, const std::string& what, const std::string& details) {
  if (m_warned.insert(warning).second) m_report.note(what, details);
}

void Session::reportChange(const std::string& data) {
  if (m_actions.showsJson) return m_report.note("device change: ", data);
  const auto [kind, details] = describeChange(data);
  m_report.note(kind, details);
}

void Session::pluginEvent(RedirEvent event, const std::string& data) {
  switch (event) {
    case REDIR_EVENT_READY:
      return m_report.note("ready to share cameras");
    case REDIR_EVENT_DEVICE_CHANGE:
      update([](State& state) { ++state.deviceChanges; });
      m_actions.onDeviceChange();
      if (isControl(data)) m_actions.onControl();
      return reportChange(data);
    case REDIR_EVENT_IPC_CLOSED:
      return recover("its connection closed");
  }
  m_report.note("unknown event ", std::to_string(static_cast<int>(event)));
}

}  // namespace lumsar::host
