// ViewerHost: one VM's cameras beside a viewer's desktop: a host without a console. Everything that
// may wait, even loading the plug-in, happens on its own threads.
//
//   GTK's thread:     PortTransport, whoever calls the functions below
//   own thread:       what is to be shown, and when the camera service is asked
//   plug-in's thread: CameraHost
#pragma once

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "cameras/camera_view.h"
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
    std::function<void(const host::CameraModel&)> show;
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

  // What a person asks for, at any time.
  host::CameraControl& control() { return m_view; }
  void stop();

 private:
  void run();
  HostSetup completeSetup() const;
  void serve();

  const std::shared_ptr<host::Transport> m_transport;
  const HostSetup m_setup;
  const Actions m_actions;
  asio::io_context m_loop;
  asio::executor_work_guard<asio::io_context::executor_type> m_work = asio::make_work_guard(m_loop);
  host::CameraView m_view;
  std::thread m_thread;  // last: it uses all of the above
};

}  // namespace lumsar::viewer
