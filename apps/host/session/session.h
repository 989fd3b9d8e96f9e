// Session: drives the plug-in from the channel's state, hands it the VM's messages, and recovers
// from a lost camera service or VM. Bound to the thread that calls the plug-in, except for state().
#pragma once

#include <asio/steady_timer.hpp>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "base/back_off.h"
#include "base/rate_limit.h"
#include "driver/call_watch.h"
#include "driver/plugin_driver.h"
#include "lumsar/plugin.h"
#include "session/deframer.h"
#include "session/report.h"
#include "transport/inbox.h"
#include "transport/send_queue.h"

namespace lumsar::host {

class Session final : public ChannelListener {
 public:
  struct State {
    bool initialised = false;  // the plug-in is connected to the camera service
    bool channelOpen = false;
    std::uint64_t handshakes = 0;
    std::uint64_t recoveries = 0;
    std::uint64_t deviceChanges = 0;
    std::uint64_t bytesFromVm = 0;
    std::uint64_t strayBytes = 0;  // dropped because they were not a message
    // Since the channel was opened last:
    bool answered = false;  // the VM has completed a handshake
    bool strayed = false;   // it has sent what is not a message
  };
  struct Actions {
    // After each completed handshake: time to share cameras. `sharesAll` when the VM has asked for
    // all of them and may, which the plug-in has then done.
    std::function<void(bool sharesAll)> onHandshake;
    // There will be no channel to the VM.
    std::function<void()> onRefused;
    // Something was to be done with the camera service.
    std::function<void()> onService = [] {};
    // The camera service has told of a change.
    std::function<void()> onDeviceChange = [] {};
    // Somebody else has shared or unshared a camera: the list says which.
    std::function<void()> onControl = [] {};
    // Device changes are shown as they come, for a program that reads them.
    bool showsJson = false;
  };

  Session(const asio::any_io_executor& executor, asio::io_context& loop, const Plugin& plugin,
          const DriverSetup& setup, SendQueue& queue, Report& report, Actions actions);
  ~Session();

  void start() { initialise(); }
  bool tellsOfLostService() const { return m_driver->tellsOfLostService(); }
  void stop();
  // Thread-safe.
  State state() const;

  // The camera service is lost: de-initialises and tries again with a growing back-off.
  void recover(const std::string& why);

 private:
  enum class Warning { StrayBytes, ShortHello, OlderHello, RdpAgent, Restarts, SharesAll };
  struct EventGate;  // lets events in as long as the session lives

  void channelOpened() override;
  void channelReceived(std::span<const unsigned char> bytes) override;
  void channelClosed(const std::string& why) override;
  void channelUnavailable(const std::string& why) override;
  void channelRefused(const std::string& why) override;

  void initialise();
  void initialised();
  void initialiseLater(std::chrono::milliseconds delay);
  void handle(std::span<unsigned char> message);
  void handleHello(std::span<unsigned char> message);
  void pass(std::span<unsigned char> message);
  void handshakeCompleted(const RedirMsgHeader& header);
  void warnOnce(Warning warning, const std::string& what, const std::string& details = {});
  void reportDropped();
  void expectWord();
  void reportChange(const std::string& data);
  void pluginEvent(RedirEvent event, const std::string& data);
  template <class Change>
  void update(Change change);

  const Plugin& m_plugin;
  SendQueue& m_queue;
  Report& m_report;
  const Actions m_actions;
  CallWatch m_calls;
  std::shared_ptr<EventGate> m_gate;
  std::unique_ptr<PluginDriver> m_driver;
  asio::steady_timer m_retry;
  asio::steady_timer m_silence;  // runs from the channel's opening to the VM's first bytes
  base::BackOff m_backOff;
  Deframer m_deframer;
  std::set<Warning> m_warned;  // on this channel
  std::uint64_t m_answeredHello = 0;
  // How often a VM may begin the handshake. One that restarts all the time stays far below.
  base::RateLimit m_restarts{20, std::chrono::seconds(10)};
  std::string m_unavailable;  // why there is no channel, as last reported
  bool m_stopped = false;
  mutable std::mutex m_mutex;
  State m_state;  // written on this thread, with the lock
};

}  // namespace lumsar::host
