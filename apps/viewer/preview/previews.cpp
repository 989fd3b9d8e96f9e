#include "preview/previews.h"

#include <exception>
#include <utility>

#include "preview/jpeg_image.h"

namespace lumsar::viewer {

void Previews::open(int scale) {
  m_scale = scale;
  if (!m_thread.joinable()) m_thread = std::thread([this] { run(); });
  m_tap->open();
}

void Previews::close() {
  m_tap->close();
  take();
}

void Previews::end() {
  m_tap->end();
  if (m_thread.joinable()) m_thread.join();
}

std::vector<Preview> Previews::take() {
  const std::lock_guard lock(m_mutex);
  std::vector<Preview> newest;
  for (auto& [camera, preview] : std::exchange(m_newest, {})) newest.push_back(std::move(preview));
  return newest;
}

// No exception may end somebody else's program: what cannot be decoded has no preview.
void Previews::run() {
  while (m_tap->wait()) {
    try {
      if (const auto frame = m_tap->take()) make(*frame);
    } catch (const std::exception&) {
      continue;
    }
  }
}

// One frame that is damaged is left out, as the next one will be there at once.
void Previews::make(const host::PreviewTap::Frame& frame) {
  Preview preview{frame.camera, {}, frame.fields.encoding};
  if (frame.fields.encoding == kEncodingMjpg && !frame.data.empty()) {
    preview.image = decodeJpeg(frame.data, previewSize(m_scale));
    if (!preview.image) return;
  }
  put(std::move(preview));
}

void Previews::put(Preview preview) {
  bool isFirst = false;
  {
    const std::lock_guard lock(m_mutex);
    isFirst = m_newest.empty();
    m_newest.insert_or_assign(preview.camera, std::move(preview));
  }
  if (isFirst) m_made();
}

}  // namespace lumsar::viewer
