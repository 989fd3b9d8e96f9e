// ViewerHost: one VM's cameras beside a viewer's desktop: a host without a console. Everything that
// may wait, even loading the plug-in, happens on its own threads.
//
//   GTK's thread:     PortTransport, whoever calls the functions below
//   own thread:       what is to be shown, and when the camera service is asked
//   plug-in's thread: CameraHost
#pragma once

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "cameras/camera_model.h"
#include "cameras/choices.h"
#include "session/camera_host.h"
#include "transport/transport.h"

namespace lumsar::viewer {

struct HostSetup {
  std::string directory;  // where the plug-in and the IPC library are looked for
  std::string plugin;     // empty: looked for
  host::DriverSetup driver;
  std::string choicesFile;
  std::string choicesKey;  // which VM it is
  bool verbose = false;
};

class ViewerHost {
 public:
  // All are called on the host's threads.
  struct Actions {
    // The plug-in is loaded: what the transport is to connect, before it is started.
    std::function<void(host::SendQueue&, host::Inbox&)> connect;
    // What is to be shown, whenever it changes.
    std::function<void(const CameraModel&)> show;
    // A line of the log.
    std::function<void(const std::string&)> log;
    // It is done, or there are no cameras.
    std::function<void()> ended;
  };

  ViewerHost(std::shared_ptr<host::Transport> transport, HostSetup setup, Actions actions);
  // Waits for the plug-in, a few seconds at worst.
  ~ViewerHost();
  ViewerHost(const ViewerHost&) = delete;
  ViewerHost& operator=(const ViewerHost&) = delete;

  void setShared(const std::string& id, bool shared);
  // All: those that are there, are off and have not been refused. None: all that are shared.
  void setAllShared(bool shared);
  // Whether what is shared is shared again at the next connection.
  void setRemembered(bool remembered);
  // While the window is open, what it shows follows the camera service.
  void setWatched(bool watched);
  void stop();

 private:
  void run();
  HostSetup completeSetup() const;
  void serve();
  void runLoop();
  void handshake();
  void restore(const Choices::Cameras& cameras);
  void share(const std::string& id, bool shared);
  void chose(const std::string& id, bool shared);
  void remember(std::optional<Choices::Cameras> cameras);
  void warnOfChoices();
  void failed();
  void tick();
  void refresh();
  void ask();
  void askAgain();
  void listed(std::optional<host::CameraList> list);
  CameraModel describe() const;
  void show(CameraModel model, bool always = false);
  void post(std::function<void()> job);

  const std::shared_ptr<host::Transport> m_transport;
  const HostSetup m_setup;
  const Actions m_actions;
  asio::io_context m_loop;
  asio::executor_work_guard<asio::io_context::executor_type> m_work = asio::make_work_guard(m_loop);
  asio::steady_timer m_timer{m_loop};
  // What follows belongs to the own thread.
  host::CameraHost* m_host = nullptr;  // while it runs
  std::optional<Choices> m_choices;
  std::optional<host::CameraList> m_list;  // the latest, of this connection to the service
  bool m_serviceAnswers = true;
  CameraModel m_model;
  bool m_isRestored = false;
  bool m_isWatched = false;
  bool m_isAsking = false;
  bool m_asksAgain = false;
  bool m_notSaved = false;
  bool m_hasFailed = false;
  std::thread m_thread;  // last: it uses all of the above
};

}  // namespace lumsar::viewer
