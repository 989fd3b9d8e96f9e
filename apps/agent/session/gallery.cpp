#include "session/gallery.h"

#include <thread>
#include <utility>

#include "base/log.h"
#include "base/text/utf8.h"

namespace lumsar::agent {
namespace {

constexpr std::size_t kMaxRemembered = 200;

// A camera's name and number, fit for a file name.
std::string labelOf(const protocol::Announcement& info) {
  const std::string name = base::fileName(info.name);
  return base::text("{}-{}", name.empty() ? "camera" : name, info.camera);
}

}  // namespace

Gallery::Gallery(std::vector<std::unique_ptr<SinkFactory>> outputs, std::function<void()> changed,
                 std::size_t maxFrameBytes)
    : m_outputs(std::move(outputs)), m_changed(std::move(changed)), m_budget(maxFrameBytes) {}

// H.264 is the better one only where every output can show it.
std::vector<std::uint32_t> Gallery::encodings() const {
  bool anyShows = false;
  for (const auto& output : m_outputs) {
    const std::optional<bool> shows = output->showsH264();
    if (shows == false) return {kEncodingMjpg};
    anyShows = anyShows || shows == true;
  }
  return anyShows ? std::vector{kEncodingH264, kEncodingMjpg} : std::vector{kEncodingMjpg};
}

std::unique_ptr<Camera> Gallery::open(protocol::Announcement info, Camera::Ask ask) {
  const int handle = ++m_lastHandle;
  std::string label = labelOf(info);
  if (const int before = m_labels[label]++; before > 0) label += base::text(".{}", before + 1);
  std::vector<std::unique_ptr<Sink>> sinks;
  for (const auto& output : m_outputs) {
    if (auto sink = output->open(info, handle, label, m_changed)) sinks.push_back(std::move(sink));
  }
  return std::make_unique<Camera>(std::move(info), handle, std::move(sinks), std::move(ask),
                                  m_budget);
}

void Gallery::retire(std::unique_ptr<Camera> camera, bool tellService) {
  camera->retire(tellService);
  m_retired.push_back(std::move(camera));
  update();
}

void Gallery::update() {
  std::erase_if(m_retired, [this](const auto& camera) {
    if (!camera->sinksClosed()) return false;
    remember(*camera);
    return true;
  });
}

bool Gallery::finish(std::chrono::milliseconds timeout) {
  using namespace std::chrono_literals;
  const auto end = Clock::now() + timeout;
  for (update(); !m_retired.empty() && Clock::now() < end; update()) {
    std::this_thread::sleep_for(2ms);
  }
  for (const auto& camera : m_retired) {
    base::logError(
        "camera \"{}\": not all of its frames could be written within {} ms; check whether the "
        "disk still responds",
        camera->info().name, timeout.count());
  }
  return m_retired.empty();
}

void Gallery::remember(const Camera& camera) {
  m_removed.push_back(camera.status());
  if (m_removed.size() > kMaxRemembered) m_removed.pop_front();
}

std::vector<CameraStatus> Gallery::removed() const {
  std::vector<CameraStatus> all(m_removed.begin(), m_removed.end());
  for (const auto& camera : m_retired) all.push_back(camera->status());
  return all;
}

}  // namespace lumsar::agent
