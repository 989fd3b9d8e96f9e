// PipewireLoop: the connection to PipeWire and the thread on which all of PipeWire's objects are
// used. It connects again after PipeWire has ended. add() and wake() are thread-safe; clients are
// called on the loop's thread.
//
//   not connected --PipeWire answers--> connected --PipeWire ends--+
//         ^                                                        |
//         +------------------------- back-off ---------------------+
#pragma once

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/back_off.h"
#include "outputs/pipewire/handles.h"

namespace lumsar::agent {

class PipewireClient {
 public:
  virtual ~PipewireClient() = default;
  // After wake(), and when PipeWire was connected or lost. `core` is null while there is no
  // connection; nothing of a connection may be used once that was said.
  virtual void update(pw_core* core) = 0;
  virtual bool isEnding() const = 0;
  // Its last call: from now on it may be destroyed.
  virtual void ended() = 0;
};

class PipewireLoop {
 public:
  // Throws base::Failure. That PipeWire does not run is no error: it may come later.
  PipewireLoop();
  PipewireLoop(const PipewireLoop&) = delete;
  PipewireLoop& operator=(const PipewireLoop&) = delete;
  // To be called when all clients have ended.
  ~PipewireLoop();

  void add(PipewireClient& client);
  void wake();
  // For clients: so that all of them are updated once more, then or earlier.
  void updateIn(std::chrono::nanoseconds delay);

 private:
  // Begins and ends the use of the library.
  struct Library {
    Library() { pw_init(nullptr, nullptr); }
    ~Library() { pw_deinit(); }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
  };

  pw_loop& loop() const { return *pw_main_loop_get_loop(m_mainLoop.get()); }
  void work();
  void admitClients();
  void endClients();
  void updateClients();
  void timeOver();
  void connect();
  void wait(const std::string& why);
  void answered();
  void lost();
  void disconnect();

  static const pw_core_events kEvents;
  const Library m_library;
  Handle<pw_main_loop, pw_main_loop_destroy> m_mainLoop;
  Handle<pw_context, pw_context_destroy> m_context;
  spa_source* m_event = nullptr;  // both belong to the main loop
  spa_source* m_timer = nullptr;
  std::atomic<bool> m_ending{false};
  std::mutex m_mutex;  // for the next one
  std::vector<PipewireClient*> m_added;

  // Used by the loop's thread only.
  Handle<pw_core, pw_core_disconnect> m_core;
  spa_hook m_listener = {};
  std::vector<PipewireClient*> m_clients;
  base::BackOff m_backOff;
  bool m_isConnected = false;  // PipeWire has answered
  bool m_isLost = false;
  std::chrono::steady_clock::time_point m_timerDue = std::chrono::steady_clock::time_point::max();
  bool m_loggedWaiting = false;

  std::thread m_thread;  // last, so that everything else exists when it begins
};

}  // namespace lumsar::agent
