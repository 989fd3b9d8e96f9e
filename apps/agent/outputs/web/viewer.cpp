#include "outputs/web/viewer.h"

#include <charconv>
#include <optional>
#include <utility>

#include "base/log.h"
#include "outputs/web/live_feed.h"

namespace lumsar::agent {
namespace {

using namespace std::chrono_literals;

constexpr std::string_view kBoundary = "--lumsar-picture\r\n";
constexpr auto kCheckInterval = 500ms;    // how often to check a viewer without frames
constexpr auto kStatusTimeout = 500ms;    // while a disk or a device holds up the channel thread
constexpr auto kOneFrameTimeout = 5s;     // a camera may need a while to start
constexpr std::size_t kMaxWatched = 256;  // through one connection
constexpr std::string_view kPageHeaders =
    "Content-Security-Policy: default-src 'none'; img-src 'self' data:; style-src 'unsafe-inline'; "
    "script-src 'unsafe-inline'; connect-src 'self'\r\n";

class ViewSink : public Sink {
 public:
  ViewSink(std::shared_ptr<ViewHub> hub, int handle, std::function<void()> changed)
      : m_hub(std::move(hub)),
        m_handle(handle),
        m_stream(std::make_shared<ViewStream>(std::move(changed))) {
    m_hub->add(m_handle, m_stream);
  }
  ~ViewSink() override { ViewSink::close(); }

  bool hasConsumer() const override { return m_stream->hasConsumer(); }
  void deliver(FramePtr frame) override { m_stream->deliver(std::move(frame)); }
  void close() override {
    m_hub->remove(m_handle);
    m_stream->close();
  }
  bool closed() const override { return m_stream->closed(); }
  SinkReport report() const override { return m_stream->report(); }

 private:
  std::shared_ptr<ViewHub> m_hub;
  int m_handle;
  std::shared_ptr<ViewStream> m_stream;
};

void sendLive(const std::shared_ptr<ViewStream>& stream, HttpResponse& response) {
  Bell bell;
  ViewStream::Reader reader(stream, bell);
  if (!response.beginStream("multipart/x-mixed-replace; boundary=lumsar-picture")) return;
  bool connected = response.write(kBoundary);
  while (connected && !stream->closed()) {
    const FramePtr frame = reader.next(kCheckInterval);
    if (!frame || frame->format.encoding != kEncodingMjpg) {
      connected = response.isConnected();
      continue;
    }
    // The boundary goes out at once: browsers show a frame only when they have received its end.
    connected = response.write(base::text("Content-Type: image/jpeg\r\nContent-Length: {}\r\n\r\n",
                                          frame->data.size())) &&
                response.write(base::Bytes(frame->data)) && response.write("\r\n") &&
                response.write(kBoundary);
  }
}

void sendOne(const std::shared_ptr<ViewStream>& stream, HttpResponse& response) {
  Bell bell;
  ViewStream::Reader reader(stream, bell);
  const auto deadline = std::chrono::steady_clock::now() + kOneFrameTimeout;
  while (!stream->closed() && response.isConnected() &&
         std::chrono::steady_clock::now() < deadline) {
    const FramePtr frame = reader.next(kCheckInterval);
    if (!frame || frame->format.encoding != kEncodingMjpg) continue;
    return response.send("200 OK", "image/jpeg",
                         {reinterpret_cast<const char*>(frame->data.data()), frame->data.size()});
  }
  response.send("504 Gateway Timeout", "text/plain", "the camera sent no frame in time\n");
}

// The page with the current status in its script.
std::string pageWith(const std::string& status) {
  constexpr std::string_view kPlace = "/*status*/{}";
  std::string page = kPage;
  const std::size_t place = page.find(kPlace);
  if (place != std::string::npos) page.replace(place, kPlace.size(), status);
  return page;
}

std::optional<int> handleOf(std::string_view digits) {
  int handle = 0;
  const char* end = digits.data() + digits.size();
  const auto [rest, error] = std::from_chars(digits.data(), end, handle);
  return error == std::errc() && rest == end ? std::optional(handle) : std::nullopt;
}

}  // namespace

void ViewHub::add(int handle, std::shared_ptr<ViewStream> stream) {
  const std::lock_guard lock(m_mutex);
  m_streams[handle] = std::move(stream);
}

void ViewHub::remove(int handle) {
  const std::lock_guard lock(m_mutex);
  m_streams.erase(handle);
}

std::shared_ptr<ViewStream> ViewHub::find(int handle) const {
  const std::lock_guard lock(m_mutex);
  const auto found = m_streams.find(handle);
  return found == m_streams.end() ? nullptr : found->second;
}

bool ViewHub::needsStatus() const {
  const std::lock_guard lock(m_mutex);
  return m_needsStatus;
}

void ViewHub::setStatus(std::string json) {
  {
    const std::lock_guard lock(m_mutex);
    m_status = std::move(json);
    m_needsStatus = false;
  }
  m_statusSet.notify_all();
}

std::string ViewHub::status() {
  std::unique_lock lock(m_mutex);
  if (m_askForStatus) {
    m_needsStatus = true;
    m_askForStatus();
    m_statusSet.wait_for(lock, kStatusTimeout, [this] { return !m_needsStatus; });
  }
  return m_status;
}

std::unique_ptr<Sink> ViewOutput::open(const protocol::Announcement& /*camera*/, int handle,
                                       const std::string& /*label*/,
                                       std::function<void()> changed) {
  return std::make_unique<ViewSink>(m_hub, handle, std::move(changed));
}

Viewer::Viewer(std::uint16_t port, const std::string& key, std::shared_ptr<ViewHub> hub)
    : m_hub(std::move(hub)),
      m_server(port, key, [this](const std::string& path, HttpResponse& response) {
        handle(path, response);
      }) {
  base::logInfo("the live page is http://127.0.0.1:{}/?key={}", m_server.port(), key);
}

void Viewer::handle(const std::string& path, HttpResponse& response) const {
  constexpr std::string_view kLive = "/live/";
  constexpr std::string_view kCamera = "/camera/";
  if (path == "/") {
    return response.send("200 OK", "text/html; charset=utf-8", pageWith(m_hub->status()),
                         kPageHeaders);
  }
  if (path == "/status.json") {
    return response.send("200 OK", "application/json", m_hub->status());
  }
  if (path.starts_with(kLive)) {
    return serveFeed(std::string_view(path).substr(kLive.size()), response);
  }
  if (path.starts_with(kCamera)) return serveCamera(path.substr(kCamera.size()), response);
  response.send("404 Not Found", "text/plain", "not found\n");
}

void Viewer::serveFeed(std::string_view handles, HttpResponse& response) const {
  std::vector<LiveCamera> cameras;
  const bool watchesSome = !handles.empty();
  while (watchesSome && cameras.size() < kMaxWatched) {
    const std::size_t comma = handles.find(',');
    const auto handle = handleOf(handles.substr(0, comma));
    if (!handle || *handle < 0) {
      return response.send("404 Not Found", "text/plain", "this is not a list of cameras\n");
    }
    if (auto stream = m_hub->find(*handle)) cameras.push_back({*handle, std::move(stream)});
    if (comma == std::string_view::npos) break;
    handles.remove_prefix(comma + 1);
  }
  sendFeed(
      cameras, [this] { return m_hub->status(); }, response);
}

void Viewer::serveCamera(const std::string& file, HttpResponse& response) const {
  const std::size_t dot = file.rfind('.');
  const auto handle = handleOf(std::string_view(file).substr(0, dot));
  const std::string ending = dot == std::string::npos ? "" : file.substr(dot);
  const auto stream = handle ? m_hub->find(*handle) : nullptr;
  if (stream && ending == ".mjpeg") return sendLive(stream, response);
  if (stream && ending == ".jpg") return sendOne(stream, response);
  response.send("404 Not Found", "text/plain", "no such camera\n");
}

}  // namespace lumsar::agent
