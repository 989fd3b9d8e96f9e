// Viewer: the live page with all cameras, on the loopback interface only, for whoever has its key.
// A camera runs while it is being watched. Requests are handled on the HTTP connections' threads.
//
//   /             the page            /live/N,M,...     the page's feed, of the cameras N, M, ...
//   /status.json  what --json prints  /camera/N.mjpeg   live, N is the camera's handle
//                                     /camera/N.jpg     one frame
#pragma once

#include <condition_variable>
#include <functional>
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
  // `askForStatus` is called when a request needs a new one, which setStatus() then brings soon.
  explicit ViewHub(std::function<void()> askForStatus = {})
      : m_askForStatus(std::move(askForStatus)) {}

  void add(int handle, std::shared_ptr<ViewStream> stream);
  void remove(int handle);
  std::shared_ptr<ViewStream> find(int handle) const;
  bool needsStatus() const;
  void setStatus(std::string json);
  // The latest, if no new one comes in time.
  std::string status();

 private:
  const std::function<void()> m_askForStatus;
  mutable std::mutex m_mutex;
  std::condition_variable m_statusSet;
  bool m_needsStatus = false;
  std::map<int, std::shared_ptr<ViewStream>> m_streams;
  std::string m_status = "{}";
};

class ViewOutput : public SinkFactory {
 public:
  explicit ViewOutput(std::shared_ptr<ViewHub> hub) : m_hub(std::move(hub)) {}

  std::unique_ptr<Sink> open(const protocol::Announcement& camera, int handle,
                             const std::string& label, std::function<void()> changed) override;

 private:
  std::shared_ptr<ViewHub> m_hub;
};

class Viewer {
 public:
  // Throws base::Failure when the port is in use.
  Viewer(std::uint16_t port, const std::string& key, std::shared_ptr<ViewHub> hub);

  std::uint16_t port() const { return m_server.port(); }

 private:
  void handle(const std::string& path, HttpResponse& response) const;
  void serveFeed(std::string_view handles, HttpResponse& response) const;
  void serveCamera(const std::string& file, HttpResponse& response) const;

  std::shared_ptr<ViewHub> m_hub;
  HttpServer m_server;  // last: its threads use the rest
};

// The content of page.html, built in.
extern const char* const kPage;

}  // namespace lumsar::agent
