// What a camera offers to its consumers through PipeWire, and what one of them has chosen, to and
// from PipeWire's own descriptions of them.
#pragma once

#include <spa/pod/builder.h>

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "decode/raw_format.h"
#include "lumsar/camera_data.h"

namespace lumsar::agent {

struct OfferedFormat {
  FrameSize size;
  std::uint32_t encoding = 0;
  std::uint32_t frameInterval = 0;  // µs, 0 if not known
  bool asRaw = false;               // it can be decoded for consumers that want that

  bool sameFrames(const OfferedFormat& other) const {
    return size == other.size && encoding == other.encoding;
  }
};

struct ChosenFormat {
  FrameSize size;
  std::uint32_t encoding = 0;

  bool operator==(const ChosenFormat&) const = default;
};

// Where descriptions are built; they are valid as long as this object lives.
class PodSpace {
 public:
  PodSpace() { spa_pod_builder_init(&m_builder, m_bytes.data(), kBytes); }
  PodSpace(const PodSpace&) = delete;
  PodSpace& operator=(const PodSpace&) = delete;
  spa_pod_builder* builder() { return &m_builder; }

 private:
  static constexpr std::uint32_t kBytes = 8192;  // far more than all descriptions take

  alignas(8) std::array<unsigned char, kBytes> m_bytes;
  spa_pod_builder m_builder = {};
};

using Pods = std::vector<const spa_pod*>;

// The camera's own frames first, as they cost nothing. Empty if nothing can be made of them.
Pods formatPods(PodSpace& space, const OfferedFormat& format);
// Raw frames have the range of brightness of the camera's own, so that nothing is converted.
bool isFullRange(const OfferedFormat& format);
// What the buffers for frames of this format have to be like.
Pods bufferPods(PodSpace& space, const ChosenFormat& format);
std::size_t bufferBytes(const ChosenFormat& format);
std::size_t strideOf(const ChosenFormat& format);
std::optional<ChosenFormat> readFormat(const spa_pod* pod);

}  // namespace lumsar::agent
