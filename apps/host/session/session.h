// Session: drives the plug-in from the channel's state, hands it the VM's messages, and recovers
// from a lost camera service or VM. All of it on the main loop, so that initialisation and teardown
// never meet a message, though messages wait for them, a few seconds at worst; only commands call
// the plug-in from elsewhere (class Commands).
#ifndef LUMSAR_HOST_SESSION_SESSION_H
#define LUMSAR_HOST_SESSION_SESSION_H

#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "lumsar/assembler.h"
#include "lumsar/plugin.h"
#include "session/plugin_driver.h"
#include "session/report.h"
#include "transport/send_queue.h"
#include "transport/transport.h"

namespace lumsar::host {

class Session final : private Transport::Listener {
 public:
  struct State {
    bool initialised = false;  // the plug-in is connected to the camera service
    bool channelOpen = false;
    bool greeted = false;  // the VM has answered the HELLO of this initialisation and channel
    std::uint64_t handshakes = 0;
    std::uint64_t recoveries = 0;
    std::uint64_t deviceChanges = 0;
    std::uint64_t bytesFromVm = 0;
    std::uint64_t strayBytes = 0;  // dropped because they were no message
  };

  Session(asio::io_context& loop, const Plugin& plugin, const DriverSetup& setup, SendQueue& queue,
          Transport& transport, Report& report);
  ~Session();

  // Called on the main loop after each answered HELLO: time to share cameras. `sharesAll` when the
  // VM has asked for all of them, which the plug-in has then done.
  void setOnGreeted(std::function<void(bool sharesAll)> action) { m_onGreeted = std::move(action); }

  // Called on the main loop when there will be no channel to the VM.
  void setOnRefused(std::function<void()> action) { m_onRefused = std::move(action); }

  void start();
  void stop();
  const State& state() const { return m_state; }
  // Another number for each connection to the camera service; nothing while there is none.
  std::optional<std::uint64_t> serviceConnection() const {
    return m_state.initialised ? std::optional(m_state.recoveries) : std::nullopt;
  }

  // The camera service is gone: de-initialises and tries again with a growing pause.
  void recover(const std::string& why);

 private:
  using Clock = std::chrono::steady_clock;
  enum class Oddity { StrayBytes, ShortHello, OlderHello, RdpSide, Beginnings };
  struct EventGate;  // lets events in as long as the session lives

  void channelOpened() override;
  void channelReceived(std::span<const unsigned char> bytes) override;
  void channelClosed(const std::string& why) override;
  void channelTrouble(const std::string& why) override;
  void channelRefused(const std::string& why) override;

  void initialise();
  void initialised();
  void initialiseLater(const std::string& why);
  void handle(std::span<unsigned char> message);
  bool synchronise();
  bool skipKnock();
  void handleHello(std::span<unsigned char> message);
  bool mayBegin();
  void pass(std::span<unsigned char> message);
  void greeted(const RedirMsgHeader& header);
  void sayOnce(Oddity oddity, const std::string& line);
  void dropStrayBytes();
  void expectWord();
  void pluginEvent(RedirEvent event, const std::string& data);

  const Plugin& m_plugin;
  Transport& m_transport;
  SendQueue& m_queue;
  Report& m_report;
  std::shared_ptr<EventGate> m_gate;
  std::unique_ptr<PluginDriver> m_driver;
  asio::steady_timer m_retry;
  asio::steady_timer m_silence;  // runs from the channel's opening to the VM's first bytes
  std::chrono::milliseconds m_pause;
  MessageAssembler m_assembler;
  bool m_synchronised = false;  // a message that begins a conversation has come
  std::set<Oddity> m_said;      // on this channel
  std::uint64_t m_answeredHello = 0;
  Clock::time_point m_beginningsSince;
  int m_beginnings = 0;
  std::string m_trouble;  // the latest that was reported
  std::function<void(bool)> m_onGreeted;
  std::function<void()> m_onRefused;
  State m_state;
};

}  // namespace lumsar::host

#endif
