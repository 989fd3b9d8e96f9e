#include "decode/jpeg_decoder.h"

#include <turbojpeg.h>

#include <algorithm>
#include <array>
#include <memory>
#include <new>
#include <optional>
#include <string_view>

#include "protocol/jpeg_segments.h"

namespace lumsar::agent {
namespace {

constexpr unsigned char kNoColour = 128;

// Whether one scan has all of the image, as cameras make it. Of other JPEGs each scan is work on
// the whole image, and costs a sender a few bytes.
bool hasOneScan(base::Bytes bytes) {
  namespace jpeg = protocol::jpeg;
  protocol::JpegSegments segments(bytes);
  std::size_t components = 0;
  while (const auto segment = segments.next()) {
    const auto [marker, body] = *segment;
    if (body.data() == nullptr) return false;
    if (marker == jpeg::kScan) return !body.empty() && body[0] != 0 && body[0] == components;
    if (marker == jpeg::kBaselineFrame || marker == jpeg::kExtendedFrame) {
      if (body.size() < 6) return false;
      components = body[5];
    } else if (marker <= jpeg::kEnd && marker != jpeg::kHuffmanTables) {
      return false;  // frames of other kinds, and what has no place in front of a scan
    }
  }
  return false;
}

// Some cameras pad the data of an image. All of it has been decoded then.
bool isOnlyFilledUp(tjhandle decoder) {
  constexpr std::string_view kFilledUp = " extraneous bytes before marker 0xd9";
  return tjGetErrorCode(decoder) == TJERR_WARNING &&
         std::string_view(tjGetErrorStr2(decoder)).ends_with(kFilledUp);
}

struct Plane {
  std::size_t width = 0;
  std::size_t height = 0;
  unsigned char* data = nullptr;

  std::size_t bytes() const { return width * height; }
  bool hasSizeOf(const Plane& other) const {
    return width == other.width && height == other.height;
  }
};
using Planes = std::array<Plane, 3>;

Planes i420Planes(FrameSize size, std::span<unsigned char> to) {
  const std::size_t columns = (size.width + 1U) / 2;
  const std::size_t rows = (size.height + 1U) / 2;
  unsigned char* colours = to.data() + std::size_t{size.width} * size.height;
  return {Plane{size.width, size.height, to.data()}, Plane{columns, rows, colours},
          Plane{columns, rows, colours + columns * rows}};
}

// Planes as the decoder fills them: in `target` where they have the same size, else in `scratch`.
Planes decodedPlanes(FrameSize size, int sampling, const Planes& target,
                     std::vector<unsigned char>& scratch) {
  Planes planes;
  const std::size_t count = sampling == TJSAMP_GRAY ? 1 : planes.size();
  std::size_t needed = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const int component = static_cast<int>(i);
    planes[i].width = static_cast<std::size_t>(tjPlaneWidth(component, size.width, sampling));
    planes[i].height = static_cast<std::size_t>(tjPlaneHeight(component, size.height, sampling));
    if (!planes[i].hasSizeOf(target[i])) needed += planes[i].bytes();
  }
  scratch.resize(needed);
  unsigned char* next = scratch.data();
  for (std::size_t i = 0; i < count; ++i) {
    const bool inPlace = planes[i].hasSizeOf(target[i]);
    planes[i].data = inPlace ? target[i].data : next;
    if (!inPlace) next += planes[i].bytes();
  }
  return planes;
}

// The nearest sample is good enough for colours, of which the eye sees less. Of brightness only the
// edges differ, which are cut off.
void resample(const Plane& from, const Plane& to) {
  for (std::size_t y = 0; y < to.height; ++y) {
    const unsigned char* row = from.data + y * from.height / to.height * from.width;
    unsigned char* target = to.data + y * to.width;
    for (std::size_t x = 0; x < to.width; ++x) target[x] = row[x * from.width / to.width];
  }
}

struct Free {
  void operator()(tjhandle decoder) const { tjDestroy(decoder); }
};

// Nothing for a JPEG that is not decoded.
std::optional<int> samplingOf(tjhandle decoder, base::Bytes jpeg, FrameSize size) {
  int width = 0;
  int height = 0;
  int sampling = 0;
  int colours = 0;
  if (tjDecompressHeader3(decoder, jpeg.data(), jpeg.size(), &width, &height, &sampling,
                          &colours) != 0) {
    return std::nullopt;
  }
  const bool hasSize = width == size.width && height == size.height;
  const bool hasPlanes = colours == TJCS_YCbCr || colours == TJCS_GRAY;
  return hasSize && hasPlanes ? std::optional(sampling) : std::nullopt;
}

}  // namespace

bool JpegDecoder::decode(base::Bytes jpeg, FrameSize size, std::span<unsigned char> to) {
  if (!isDecodable(size) || to.size() < i420Bytes(size)) return false;
  // One for each JPEG, as it would use the tables of the one before for one that has none.
  const std::unique_ptr<void, Free> decoder(tjInitDecompress());
  if (!decoder) throw std::bad_alloc();
  const auto sampling = samplingOf(decoder.get(), jpeg, size);
  if (!sampling || !hasOneScan(jpeg)) return false;
  const Planes target = i420Planes(size, to);
  const Planes decoded = decodedPlanes(size, *sampling, target, m_scratch);
  std::array<unsigned char*, 3> pointers = {decoded[0].data, decoded[1].data, decoded[2].data};
  if (tjDecompressToYUVPlanes(decoder.get(), jpeg.data(), jpeg.size(), pointers.data(), 0, nullptr,
                              0, 0) != 0 &&
      !isOnlyFilledUp(decoder.get())) {
    return false;
  }
  for (std::size_t i = 0; i < target.size(); ++i) {
    if (decoded[i].bytes() == 0) {
      std::fill_n(target[i].data, target[i].bytes(), kNoColour);
    } else if (decoded[i].data != target[i].data) {
      resample(decoded[i], target[i]);
    }
  }
  return true;
}

}  // namespace lumsar::agent
