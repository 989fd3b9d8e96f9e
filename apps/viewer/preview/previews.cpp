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
  using Event = host::PreviewTap::Event;
  for (Event event = m_tap->wait(); event != Event::Ended; event = m_tap->wait()) {
    try {
      handle(event);
    } catch (const std::exception&) {
      continue;
    }
  }
}

// Each opening begins with key frames.
void Previews::handle(host::PreviewTap::Event event) {
  if (event == host::PreviewTap::Event::Changed) return m_streams.clear();
  if (const auto frame = m_tap->take()) make(*frame);
}

// One frame that is damaged is left out, as the next one will be there at once.
void Previews::make(const host::PreviewTap::Frame& frame) {
  if (frame.fields.encoding == kEncodingH264) return makeFromH264(frame);
  Preview preview{frame.camera, {}, frame.fields.encoding};
  if (frame.fields.encoding == kEncodingMjpg && !frame.data.empty()) {
    preview.image = decodeJpeg(frame.data, previewSize(m_scale));
    if (!preview.image) return;
  }
  put(std::move(preview));
}

// Every unit is decoded, but not every frame shown.
void Previews::makeFromH264(const host::PreviewTap::Frame& frame) {
  Stream& stream = m_streams[frame.camera];
  const bool isKey = (frame.fields.flags & kFrameIsKey) != 0;
  const bool isMissing = !stream.images || frame.data.empty();
  if (!isMissing && !stream.images->decode(frame.data, isKey)) return;
  const auto now = host::PreviewTap::Clock::now();
  if (now < stream.next && !frame.data.empty()) return;
  stream.next = now + host::kPreviewInterval;
  const Image image = isMissing ? Image() : stream.images->image(previewSize(m_scale));
  put({frame.camera, image, frame.fields.encoding});
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
