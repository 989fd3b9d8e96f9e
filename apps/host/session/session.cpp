#include "session/session.h"

#include <asio/post.hpp>
#include <utility>

#include "lumsar/camera_data.h"

namespace lumsar::host {

namespace {

constexpr std::chrono::milliseconds kFirstPause{200};
constexpr std::chrono::milliseconds kLongestPause{5000};
// How long the VM may say nothing on an open channel before the user is told.
constexpr std::chrono::seconds kSilence{5};
// How long handing on one message may take, and each further part of a large one. Nothing but a
// camera service that takes nothing needs longer, and each message would wait for it.
constexpr std::chrono::milliseconds kPatience{1500};
constexpr std::size_t kBytesAMillisecond = 8U << 10U;
// How often a VM may begin the conversation. One that restarts all the time stays far below.
constexpr std::chrono::seconds kBeginningsTime{10};
constexpr int kMaxBeginnings = 20;

}  // namespace

// Events come on the plug-in's threads, one of which may outlive the session.
struct Session::EventGate {
  std::mutex mutex;
  Session* session = nullptr;
  asio::io_context* loop = nullptr;
};

Session::Session(asio::io_context& loop, const Plugin& plugin, const DriverSetup& setup,
                 SendQueue& queue, Transport& transport, Report& report)
    : m_plugin(plugin),
      m_transport(transport),
      m_queue(queue),
      m_report(report),
      m_gate(std::make_shared<EventGate>()),
      m_retry(loop),
      m_silence(loop),
      m_pause(kFirstPause) {
  m_gate->session = this;
  m_gate->loop = &loop;
  m_driver = makeDriver(
      plugin, setup, queue, [gate = m_gate](RedirEvent event, const char* data, int length) {
        const std::lock_guard lock(gate->mutex);
        if (gate->session == nullptr) return;
        std::string copy(data != nullptr ? data : "", static_cast<std::size_t>(length));
        asio::post(*gate->loop, [session = gate->session, event, copy = std::move(copy)] {
          session->pluginEvent(event, copy);
        });
      });
}

Session::~Session() {
  const std::lock_guard lock(m_gate->mutex);
  m_gate->session = nullptr;
}

void Session::start() {
  initialise();
  m_transport.start(*this);
}

void Session::stop() {
  m_retry.cancel();
  m_silence.cancel();
  // The service takes back what was shared when its connection ends.
  if (m_state.initialised) m_driver->deInit();
  m_state.initialised = m_state.channelOpen = m_state.greeted = false;
  m_transport.stop();
}

void Session::initialise() {
  try {
    const int status = m_driver->init();
    if (status == STATUS_OK) return initialised();
    // What failed while connecting has left the plug-in initialised.
    if (status != STATUS_INIT_FAILED) m_driver->deInit();
    initialiseLater(statusText(status));
  } catch (const std::exception& error) {
    initialiseLater(error.what());
  }
}

void Session::initialised() {
  m_pause = kFirstPause;
  m_state.initialised = true;
  m_report.say("connected to the camera service");
  if (!m_state.channelOpen) return;
  m_driver->greetAgain();
  expectWord();
}

void Session::initialiseLater(const std::string& why) {
  m_report.say("no camera service: " + why + "; next try in " + std::to_string(m_pause.count()) +
               " ms");
  m_retry.expires_after(m_pause);
  m_pause = std::min(m_pause * 2, kLongestPause);
  m_retry.async_wait([this](std::error_code error) {
    if (!error) initialise();
  });
}

void Session::recover(const std::string& why) {
  if (!m_state.initialised) return;
  m_report.say("camera service lost: " + why);
  m_state.initialised = m_state.greeted = false;
  ++m_state.recoveries;
  m_driver->deInit();
  m_pause = kFirstPause;
  m_retry.expires_after(m_pause);
  m_retry.async_wait([this](std::error_code error) {
    if (!error) initialise();
  });
}

void Session::channelOpened() {
  m_report.say("channel to the VM is open");
  m_state.channelOpen = true;
  m_synchronised = false;
  m_said.clear();
  m_trouble.clear();
  // What came up while it was closed is for nobody.
  m_queue.clear();
  m_driver->channelEvent(CHANNEL_EVENT_OPENED);
  expectWord();
}

void Session::expectWord() {
  m_silence.expires_after(kSilence);
  m_silence.async_wait([this](std::error_code error) {
    if (error) return;
    m_report.say(
        "the VM says nothing: does lumsar-agent run in it, and does the server allow the channel?");
  });
}

void Session::channelClosed(const std::string& why) {
  m_report.say("channel to the VM is closed: " + why);
  m_silence.cancel();
  m_state.channelOpen = m_state.greeted = false;
  m_driver->channelEvent(CHANNEL_EVENT_CLOSED);
  // Only now: what the closing itself has sent must not greet the next VM.
  m_queue.clear();
  m_assembler.clear();
}

void Session::channelReceived(std::span<const unsigned char> bytes) {
  m_state.bytesFromVm += bytes.size();
  m_assembler.append(bytes);
  while (true) {
    dropStrayBytes();
    const auto message = m_assembler.next();
    if (message.empty()) return;
    m_silence.cancel();
    handle(message);
  }
}

void Session::channelTrouble(const std::string& why) {
  if (why == m_trouble) return;
  m_trouble = why;
  m_report.say("no channel to the VM: " + why);
}

void Session::channelRefused(const std::string& why) {
  m_report.say("no channel to the VM: " + why);
  if (m_onRefused) m_onRefused();
}

// A new channel may begin with the tail of an old message, and that tail with something like a
// header: until the VM has begun its conversation, only its beginnings count.
bool Session::synchronise() {
  const auto header = m_assembler.peek();
  if (!header) return true;  // not known yet
  m_synchronised =
      m_synchronised || header->type == MSG_HELLO || header->type == MSG_CHANNEL_OPENED;
  return m_synchronised;
}

// What a VM's side that has heard nothing sends begins nothing, but is no trouble either.
bool Session::skipKnock() {
  auto bytes = m_assembler.waiting();
  const auto header = take<RedirMsgHeader>(bytes);
  const auto record = take<CameraDataHeader>(bytes);
  const bool knock = header && record && header->magic == kMagic && header->type == MSG_DATA &&
                     header->length == sizeof *record &&
                     record->kind == static_cast<std::uint16_t>(CameraDataKind::WakeUpProbe);
  return knock && !m_assembler.next().empty();
}

void Session::dropStrayBytes() {
  std::size_t dropped = 0;
  while (m_assembler.fault() != MessageAssembler::Fault::None || !synchronise()) {
    if (!skipKnock()) dropped += m_assembler.skipFault();
  }
  if (dropped == 0) return;
  sayOnce(Oddity::StrayBytes,
          "the VM sent " + std::to_string(dropped) + " bytes that are no message; dropped");
  m_state.strayBytes += dropped;
}

void Session::handle(std::span<unsigned char> message) {
  if (!m_state.initialised) return;  // the plug-in could only complain
  const RedirMsgHeader header = readHeader(message.data());
  if (header.type == MSG_HELLO) return handleHello(message);
  // An RDP host's part of the conversation would undo ours.
  if (header.type == MSG_CHANNEL_OPENED && !m_driver->vmOpensChannel()) {
    return sayOnce(
        Oddity::RdpSide,
        "the VM's side takes this for an RDP channel; run lumsar-agent without --protocol rdp");
  }
  if (header.type == MSG_CHANNEL_OPENED && !mayBegin()) {
    return sayOnce(Oddity::Beginnings, "the VM begins again and again; not all of it is answered");
  }
  pass(message);
}

void Session::handleHello(std::span<unsigned char> message) {
  HelloMessage answer;
  if (message.size() < sizeof answer) {
    return sayOnce(Oddity::ShortHello, "the VM sent a HELLO without its payload; dropped");
  }
  std::memcpy(&answer, message.data(), sizeof answer);
  const SendQueue::Counters sent = m_queue.counters();
  if (answer.payload.token != sent.helloToken) {
    pass(message);
    return sayOnce(Oddity::OlderHello, "the VM answered an older HELLO: token " +
                                           std::to_string(answer.payload.token) + " instead of " +
                                           std::to_string(sent.helloToken) + "; dropped");
  }
  // A VM that repeats itself must not make us do so.
  if (std::exchange(m_answeredHello, sent.hellos) == sent.hellos) return;
  pass(message);
  if (m_state.initialised) greeted(answer.header);
}

bool Session::mayBegin() {
  const auto now = Clock::now();
  if (now - m_beginningsSince > kBeginningsTime) {
    m_beginningsSince = now;
    m_beginnings = 0;
  }
  return ++m_beginnings <= kMaxBeginnings;
}

void Session::pass(std::span<unsigned char> message) {
  const auto patience = kPatience + std::chrono::milliseconds(message.size() / kBytesAMillisecond);
  const auto begin = Clock::now();
  m_plugin.Handler(message.data(), static_cast<int>(message.size()));
  if (Clock::now() - begin > patience) recover("it takes nothing");
}

void Session::greeted(const RedirMsgHeader& header) {
  m_report.say("VM answered, version " + std::to_string(header.vmMajor) + "." +
               std::to_string(header.vmMinor));
  m_state.greeted = true;
  ++m_state.handshakes;
  if (m_onGreeted) m_onGreeted((header.capabilities & CAP_SHARE_ALL) != 0);
}

// Once a channel: the VM may do it as often as it likes.
void Session::sayOnce(Oddity oddity, const std::string& line) {
  if (m_said.insert(oddity).second) m_report.say(line);
}

void Session::pluginEvent(RedirEvent event, const std::string& data) {
  switch (event) {
    case REDIR_EVENT_READY:
      return m_report.say("ready to share cameras");
    case REDIR_EVENT_DEVICE_CHANGE:
      ++m_state.deviceChanges;
      return m_report.say("device change: " + data);
    case REDIR_EVENT_IPC_CLOSED:
      return recover("its connection closed");
  }
  m_report.say("unknown event " + std::to_string(static_cast<int>(event)));
}

}  // namespace lumsar::host
