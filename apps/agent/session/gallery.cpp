// Outputs and retired cameras. Owned by Program.
// Bound to the channel's thread.
#include "session/gallery.h"

#include <cctype>
#include <thread>
#include <utility>

#include "app/log.h"

namespace lumsar::agent {
namespace {

constexpr std::size_t kRemembered = 200;

// A camera's name as a file may bear it.
std::string fileName(const CameraInfo& info) {
  std::string name;
  for (const char c : info.name.substr(0, 60)) {
    const bool plain = std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '-';
    if (plain || (!name.empty() && name.back() != '-')) name.push_back(plain ? c : '-');
  }
  while (!name.empty() && name.back() == '-') name.pop_back();
  return text(name.empty() ? "camera" : name, "-", info.number);
}

}  // namespace

Gallery::Gallery(std::vector<std::unique_ptr<Output>> outputs, std::function<void()> changed)
    : m_outputs(std::move(outputs)), m_changed(std::move(changed)) {}

std::unique_ptr<Camera> Gallery::open(CameraInfo info, Camera::Ask ask) {
  const int handle = ++m_lastHandle;
  std::string label = fileName(info);
  if (const int before = m_labels[label]++; before > 0) label = text(label, ".", before + 1);
  std::vector<std::unique_ptr<Sink>> sinks;
  for (const auto& output : m_outputs) {
    if (auto sink = output->open(info, handle, label, m_changed)) sinks.push_back(std::move(sink));
  }
  return std::make_unique<Camera>(std::move(info), handle, std::move(sinks), std::move(ask));
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

bool Gallery::finish(std::chrono::milliseconds limit) {
  using namespace std::chrono_literals;
  const auto end = Clock::now() + limit;
  for (update(); !m_retired.empty() && Clock::now() < end; update()) {
    std::this_thread::sleep_for(2ms);
  }
  for (const auto& camera : m_retired) {
    logError("camera \"", camera->info().name, "\": not all of its pictures could be written ",
             "within ", limit.count(), " ms; see whether the disk still answers");
  }
  return m_retired.empty();
}

void Gallery::remember(const Camera& camera) {
  m_gone.push_back(camera.status());
  if (m_gone.size() > kRemembered) m_gone.pop_front();
}

std::vector<CameraStatus> Gallery::gone() const {
  std::vector<CameraStatus> all(m_gone.begin(), m_gone.end());
  for (const auto& camera : m_retired) all.push_back(camera->status());
  return all;
}

}  // namespace lumsar::agent
