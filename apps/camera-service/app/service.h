// Service: the parts of lumsar-camera-service put together.
//
//   DeviceWatch --> Catalogue --> CameraStream --> Share --> IpcServer --> hosts --> VMs
//        ^                             ^             ^                        |
//   webcams, VirtualCameras        (Capture)       Host <---- commands -------+
//
// Everything is bound to the thread that calls run(); cameras' pictures and GStreamer's news are
// posted to it.
#ifndef LUMSAR_CAMERA_SERVICE_APP_SERVICE_H
#define LUMSAR_CAMERA_SERVICE_APP_SERVICE_H

#include <asio/io_context.hpp>
#include <asio/signal_set.hpp>

#include "app/service_options.h"
#include "ipc/server/server.h"
#include "session/reports.h"
#include "sources/device_watch.h"
#include "sources/file_cameras.h"
#include "sources/folder_watch.h"

namespace lumsar::service {

class Service : private ipc::IpcServerEvents {
 public:
  // Starts listening. Throws std::runtime_error with a text for the user.
  Service(asio::io_context& io, const Options& options, ipc::Listener listener);
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
  void onTrouble(const Camera& camera, const std::string& why);
  void onUnreadable(const std::string& id, const std::string& why);
  void offerSubstitute();

  asio::io_context& m_io;
  asio::signal_set m_signals;
  const AccessRules m_access;
  const bool m_mayOfferSubstitute;
  asio::thread_pool m_cameraThreads{8};  // one fewer may hang with their devices
  Catalogue m_catalogue;
  StreamTable m_streams;
  ipc::IpcServer m_server;
  const HostContext m_context;
  HostTable m_hosts;
  VirtualCameras m_virtual;
  FileCameras m_files;
  std::vector<std::unique_ptr<FolderWatch>> m_folders;
  DeviceWatch m_devices;
  const std::chrono::steady_clock::time_point m_begin = std::chrono::steady_clock::now();
};

}  // namespace lumsar::service

#endif
