#include "outputs/raw_frames.h"

namespace lumsar::agent {
namespace {
// H.264 bears no gap, so a few frames may wait; more would be a delay.
constexpr std::size_t kCapacity = 8;
}  // namespace

RawFrames::RawFrames(const RawFormat& format, RawFramesOwner& owner)
    : m_owner(owner),
      m_decoder(format),
      m_worker(kCapacity, [this](const Frame& frame) { return work(frame); }) {}

RawFrames::~RawFrames() {
  m_decoder.cancel();
}

bool RawFrames::work(const Frame& frame) {
  if (!m_continuity.isDecodable(frame.format)) return drop(frame, {});
  std::string why;
  FramePtr raw = m_decoder.decode(frame, why);
  if (!raw && !why.empty()) return drop(frame, why);
  m_continuity.passed(frame.format);
  if (!raw) return true;  // it is in a later one
  m_needsKey = false;
  m_owner.decoded(std::move(raw));
  return true;
}

bool RawFrames::drop(const Frame& frame, const std::string& why) {
  m_continuity.restart();
  m_needsKey = frame.format.encoding == kEncodingH264;
  m_owner.notDecoded(why);
  return false;
}

}  // namespace lumsar::agent
