// What the page's addresses answer. Requests come in on the HTTP connections' threads.
// The channel's thread only sets the status and hands pictures to the streams.
#include "outputs/web/viewer.h"

#include <charconv>
#include <optional>
#include <utility>

#include "app/log.h"

namespace lumsar::agent {
namespace {

using namespace std::chrono_literals;

constexpr std::string_view kBoundary = "--lumsar-picture\r\n";
constexpr auto kGlance = 500ms;   // how often a watcher without pictures is looked after
constexpr auto kOnePicture = 5s;  // a camera may need a while to start
constexpr std::string_view kPageRules =
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

  bool wanted() const override { return m_stream->wanted(); }
  void show(FramePtr frame) override { m_stream->show(std::move(frame)); }
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

void sendLive(const std::shared_ptr<ViewStream>& stream, HttpClient& client) {
  ViewStream::Watcher watcher(stream);
  if (!client.beginStream("multipart/x-mixed-replace; boundary=lumsar-picture")) return;
  bool there = client.send(kBoundary);
  while (there && !stream->closed()) {
    const FramePtr frame = watcher.next(kGlance);
    if (!frame || frame->format.encoding != kEncodingMjpg) {
      there = client.isThere();
      continue;
    }
    // The boundary goes out at once: browsers show a picture only when they have seen its end.
    there = client.send(text("Content-Type: image/jpeg\r\nContent-Length: ", frame->picture.size(),
                             "\r\n\r\n")) &&
            client.send(Bytes(frame->picture)) && client.send("\r\n") && client.send(kBoundary);
  }
}

void sendOne(const std::shared_ptr<ViewStream>& stream, HttpClient& client) {
  ViewStream::Watcher watcher(stream);
  const auto begin = std::chrono::steady_clock::now();
  while (!stream->closed() && client.isThere() &&
         std::chrono::steady_clock::now() - begin < kOnePicture) {
    const FramePtr frame = watcher.next(kGlance);
    if (!frame || frame->format.encoding != kEncodingMjpg) continue;
    const std::string_view picture(reinterpret_cast<const char*>(frame->picture.data()),
                                   frame->picture.size());
    return client.answer("200 OK", "image/jpeg", picture);
  }
  client.answer("504 Gateway Timeout", "text/plain", "the camera gave no picture in time\n");
}

// The page with the status in its script.
std::string pageWith(const std::string& status) {
  constexpr std::string_view kPlace = "/*status*/{}";
  std::string page = kPage;
  const std::size_t place = page.find(kPlace);
  if (place != std::string::npos) page.replace(place, kPlace.size(), status);
  return page;
}

std::optional<int> handleOf(std::string_view digits) {
  int handle = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), handle);
  if (error != std::errc{} || end != digits.data() + digits.size()) return std::nullopt;
  return handle;
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

void ViewHub::setStatus(std::string json) {
  const std::lock_guard lock(m_mutex);
  m_status = std::move(json);
}

std::string ViewHub::status() const {
  const std::lock_guard lock(m_mutex);
  return m_status;
}

std::unique_ptr<Sink> ViewOutput::open(const CameraInfo& /*camera*/, int handle,
                                       const std::string& /*label*/,
                                       std::function<void()> changed) {
  return std::make_unique<ViewSink>(m_hub, handle, std::move(changed));
}

Viewer::Viewer(std::uint16_t port, std::shared_ptr<ViewHub> hub)
    : m_hub(std::move(hub)), m_server(port, [this](const std::string& path, HttpClient& client) {
        handle(path, client);
      }) {
  logInfo("the live page is http://127.0.0.1:", m_server.port(), "/");
}

void Viewer::handle(const std::string& path, HttpClient& client) const {
  constexpr std::string_view kCamera = "/camera/";
  if (path == "/") {
    return client.answer("200 OK", "text/html; charset=utf-8", pageWith(m_hub->status()),
                         kPageRules);
  }
  if (path == "/status.json") {
    return client.answer("200 OK", "application/json", m_hub->status());
  }
  if (path.starts_with(kCamera)) return serveCamera(path.substr(kCamera.size()), client);
  client.answer("404 Not Found", "text/plain", "there is nothing here\n");
}

void Viewer::serveCamera(const std::string& file, HttpClient& client) const {
  const std::size_t dot = file.rfind('.');
  const auto handle = handleOf(std::string_view(file).substr(0, dot));
  const std::string ending = dot == std::string::npos ? "" : file.substr(dot);
  const auto stream = handle ? m_hub->find(*handle) : nullptr;
  if (stream && ending == ".mjpeg") return sendLive(stream, client);
  if (stream && ending == ".jpg") return sendOne(stream, client);
  client.answer("404 Not Found", "text/plain", "there is no such camera\n");
}

}  // namespace lumsar::agent
