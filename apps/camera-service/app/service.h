// Service: the parts of lumsar-camera-service put together.
//
//   DeviceWatch --> Catalogue --> CameraStream --> Share --> IpcServer --> hosts --> VMs
//        ^                             ^             ^                        |
//   webcams, VirtualCameras        (Capture)   ClientSession <-- commands ----+
//
// Everything runs in the main loop, the io_context of the thread that calls run(); frames and
// notifications of GStreamer's threads are posted to it.
#pragma once

#include <asio/io_context.hpp>
#include <asio/signal_set.hpp>

#include "app/service_options.h"
#include "ipc/server/server.h"
#include "session/reports.h"
#include "sources/device_watch.h"
#include "sources/directory_watch.h"
#include "sources/file_cameras.h"

namespace lumsar::service {

class Service : private ipc::IpcServerEvents {
 public:
  // Starts listening. Throws std::runtime_error with a text for the user.
  Service(asio::io_context& io, const Options& options, base::SocketListener listener);
  ~Service() override;

  // Serves until SIGINT, SIGTERM or SIGHUP.
  void run();

 private:
  void onClient(ipc::ClientId client, const std::string& name) override;
  void onMessage(ipc::ClientId client, std::span<unsigned char> message) override;
  void onClientGone(ipc::ClientId client, const std::string& why) override;
  void onWarning(const std::string& text) override;

  void onPlugged(CameraInfo info);
  void onUnplugged(const std::string& id);
  void onCameraFailed(const Camera& camera, const std::string& why);
  QJsonObject control(std::string_view text);
  void onUnreadable(const std::string& id, const std::string& why);
  void offerFallback();
  void nameUnmatchedRules();

  asio::io_context& m_io;
  asio::signal_set m_signals;
  const AccessRules m_access;
  const std::string m_accessLine;
  const DirectNetworks m_direct;
  const bool m_mayOfferFallback;
  asio::thread_pool m_cameraThreads{8};  // all but one may hang with their devices
  Catalogue m_catalogue;
  StreamTable m_streams;
  ipc::IpcServer m_server;
  const SessionContext m_context;
  SessionTable m_sessions;
  VirtualCameras m_virtual;
  FileCameras m_files;
  std::vector<std::unique_ptr<DirectoryWatch>> m_directories;
  DeviceWatch m_devices;
  const std::chrono::steady_clock::time_point m_begin = std::chrono::steady_clock::now();
};

}  // namespace lumsar::service
