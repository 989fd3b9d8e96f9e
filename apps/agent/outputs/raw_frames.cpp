#include "outputs/raw_frames.h"

namespace lumsar::agent {
namespace {
// H.264 tolerates no gap, so a few frames may wait; more would be a delay.
constexpr std::size_t kCapacity = 8;
}  // namespace

RawFrames::RawFrames(const RawFormat& format, RawFramesOwner& owner)
    : m_owner(owner),
      m_decoder(format),
      m_worker(std::make_unique<FrameWorker>(kCapacity,
                                             [this](const Frame& frame) { return work(frame); })) {}

RawFrames::~RawFrames() {
  stop();
}

std::uint64_t RawFrames::stop() {
  m_stopping = true;
  m_decoder.cancel();
  m_worker->close();
  m_worker->wait();
  return m_worker->dropped();
}

bool RawFrames::work(const Frame& frame) {
  if (m_stopping) return false;
  if (!m_continuity.isDecodable(frame.format)) return drop(frame, {});
  std::string why;
  FramePtr raw = m_decoder.decode(frame, why);
  if (!raw && !why.empty()) return drop(frame, why);
  m_continuity.passed(frame.format);
  if (!raw) return !m_stopping;  // it comes with a later one
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
