// Viewer: the live page with all cameras, on the loopback interface only.
// Made by Program on the channel's thread, which also sets the status; requests come in on the
// HTTP connections' threads. A camera is asked for while its picture is being watched.
//
//   /             the page            /camera/N.mjpeg   live, N is the camera's handle
//   /status.json  what --json prints  /camera/N.jpg     one picture
#ifndef LUMSAR_AGENT_OUTPUTS_WEB_VIEWER_H
#define LUMSAR_AGENT_OUTPUTS_WEB_VIEWER_H

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "outputs/web/http_server.h"
#include "outputs/web/view_stream.h"

namespace lumsar::agent {

// What sinks and requests share. Thread-safe.
class ViewHub {
 public:
  void add(int handle, std::shared_ptr<ViewStream> stream);
  void remove(int handle);
  std::shared_ptr<ViewStream> find(int handle) const;
  void setStatus(std::string json);
  std::string status() const;

 private:
  mutable std::mutex m_mutex;
  std::map<int, std::shared_ptr<ViewStream>> m_streams;
  std::string m_status = "{}";
};

class ViewOutput : public Output {
 public:
  explicit ViewOutput(std::shared_ptr<ViewHub> hub) : m_hub(std::move(hub)) {}

  std::unique_ptr<Sink> open(const CameraInfo& camera, int handle, const std::string& label,
                             std::function<void()> changed) override;

 private:
  std::shared_ptr<ViewHub> m_hub;
};

class Viewer {
 public:
  // Throws Failure when the port is taken.
  Viewer(std::uint16_t port, std::shared_ptr<ViewHub> hub);

  std::uint16_t port() const { return m_server.port(); }

 private:
  void handle(const std::string& path, HttpClient& client) const;
  void serveCamera(const std::string& file, HttpClient& client) const;

  std::shared_ptr<ViewHub> m_hub;
  HttpServer m_server;  // last: its threads use the rest
};

// The page's text. Made by the build from page.html.
extern const char* const kPage;

}  // namespace lumsar::agent

#endif
