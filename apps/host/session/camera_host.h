// CameraHost: the plug-in with all that drives it, on the one thread that calls it. The rest of a
// host program lives on the main loop, and the two talk by messages, so that a camera service that
// hangs holds up neither the channel to the VM nor the user.
//
//   main loop:        Transport --Inbox-->    Session, Commands, ServiceWatch   : plug-in's thread
//                     Transport <--SendQueue-- plug-in (any of its threads)
#pragma once

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "session/commands.h"
#include "session/service_watch.h"
#include "session/session.h"
#include "transport/transport.h"

namespace lumsar::host {

class CameraHost {
 public:
  struct Settings {
    std::string plugin;
    DriverSetup driver;
    bool json = false;  // keeps the commands' results, and shows device changes as they come
    std::function<std::string()> status;  // the text of the "status" command
    // On the plug-in's thread; true when the program shares cameras by itself.
    std::function<bool()> onHandshake;
    // On the plug-in's thread: there will be no channel to the VM, or the host has failed.
    std::function<void()> onRefused;
    // On the plug-in's thread: after a handshake, once what was shared has been shared again.
    std::function<void()> onSharedAgain = [] {};
    // On the plug-in's thread: the camera service has told of a change.
    std::function<void()> onDeviceChange = [] {};
  };
  // Loads the plug-in.
  CameraHost(asio::io_context& loop, Report& report, Settings settings);
  // Waits for a call of the plug-in that is under way.
  ~CameraHost();
  CameraHost(const CameraHost&) = delete;
  CameraHost& operator=(const CameraHost&) = delete;

  SendQueue& queue() { return m_queue; }
  Inbox& inbox() { return *m_inbox; }

  void start(Transport& transport);
  // Lets what is under way on the plug-in's thread end, drops what waits, and calls `done` on the
  // main loop. With a camera service that hangs, that takes seconds.
  void stop(std::function<void()> done);

  // Carries out commands on the plug-in's thread, one after another, then calls `done` there:
  // whether one of them asked to quit. Nothing is called once the host stops. Thread-safe.
  void run(std::vector<std::string> commands, std::function<void(bool quits)> done);
  // Calls `action` there, for a program with a window. Thread-safe.
  void control(std::function<void(Commands&)> action);
  // Asks for the cameras there, and calls `answer` with the list, if there is one. Thread-safe.
  void list(std::function<void(std::optional<CameraList>)> answer);
  void post(std::function<void()> job);

  // All thread-safe.
  Session::State state() const { return m_session.state(); }
  SendQueue::Counters counters() const { return m_queue.counters(); }
  const Commands& commands() const { return m_commands; }

 private:
  struct Script {
    std::deque<std::string> commands;
    std::function<void(bool quits)> done;
  };

  void serve();
  void runScripts();
  void awaitConnection();
  void handshake(bool sharesAll);

  asio::io_context& m_loop;
  Report& m_report;
  const Settings m_settings;
  asio::io_context m_pluginLoop;
  asio::executor_work_guard<asio::io_context::executor_type> m_work =
      asio::make_work_guard(m_pluginLoop);
  std::atomic<bool> m_stopping = false;
  SendQueue m_queue;
  std::shared_ptr<Inbox> m_inbox;
  Plugin m_plugin;
  Commands m_commands;
  std::deque<Script> m_scripts;  // the front one is being run
  asio::steady_timer m_connectionTimer{m_pluginLoop};
  Session m_session;
  ServiceWatch m_serviceWatch;
  bool m_shareAgainWaits = false;
  std::thread m_pluginThread;  // last: it uses all of the above
};

}  // namespace lumsar::host
