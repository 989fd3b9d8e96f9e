#include "formats/line_plan.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "lumsar/camera_data.h"

namespace lumsar::service {
namespace {

constexpr double kLeastBitRate = 100e3;  // of H.264, while the line is no limit
constexpr double kBitsPerPixel = 0.002;  // of H.264, for each point of quality
constexpr double kPoorestBits = 0.04;    // for a pixel: with less, fewer pixels look better
constexpr int kPoorestQuality = 12;      // of JPEG
constexpr double kSmoothRate = 17;       // frames a second; then they become smaller
constexpr double kSlowestRate = 5;       // of the smallest
constexpr double kAssumedRate = 30;      // of a camera that does not tell
constexpr double kToSpare = 0.85;        // of the line is enough for a larger size
constexpr double kNewest = 0.125;        // weight of a frame in the mean
constexpr std::array kSizes = {1.0, 0.75, 0.5, 0.375, 0.25};  // of the sides
// Bytes go by this power of the factor of JPEG's quantisation tables, as measured.
constexpr double kPower = -0.7;

double pixels(const CapturePlan& plan) {
  return static_cast<double>(plan.width) * plan.height;
}

double frameRate(const CapturePlan& plan) {
  const auto interval = static_cast<double>(plan.frameInterval());
  return interval > 0 ? 1e6 / interval : kAssumedRate;
}

// Bytes of a JPEG of this quality, in those of quality 50.
double relativeSize(int quality) {
  const double q = std::clamp(quality, 1, 99);
  return std::pow((q < 50 ? 50 / q : 2 - q / 50), kPower);
}

int qualityFor(double size) {
  const double factor = std::pow(std::max(size, 1e-3), 1 / kPower);
  const double quality = factor > 1 ? 50 / factor : 100 - 50 * factor;
  return static_cast<int>(quality);
}

bool isH264(const CapturePlan& plan) {
  return plan.encoding == kEncodingH264;
}

// Bytes for a pixel that are still worth it.
double poorest(const CapturePlan& full, const Detail& detail) {
  if (isH264(full)) return kPoorestBits / 8;
  return detail.get() * relativeSize(std::min(kPoorestQuality, full.quality));
}

void setSize(CapturePlan& plan, const CapturePlan& full, double part) {
  const auto side = [part](int whole) {
    return part == 1.0 ? whole : std::max(2, static_cast<int>(whole * part) & ~1);
  };
  plan.width = side(full.width);
  plan.height = side(full.height);
}

// The largest whose pixels the line takes at the smooth rate.
void fitSize(CapturePlan& plan, const CapturePlan& full, double pixelRate, double rate,
             const CapturePlan& now) {
  for (const double part : kSizes) {
    setSize(plan, full, part);
    const bool grows = now.isThinned && pixels(plan) > pixels(now);
    if (pixels(plan) * rate <= (grows ? kToSpare * pixelRate : pixelRate)) return;
  }
}

}  // namespace

void Detail::add(std::size_t bytes, double pixels, int quality) {
  if (pixels < 1) return;
  const double detail = static_cast<double>(bytes) / pixels / relativeSize(quality);
  m_detail += kNewest * (detail - m_detail);
}

double policyBitRate(const CapturePlan& plan) {
  return std::max(kLeastBitRate, pixels(plan) * frameRate(plan) * plan.quality * kBitsPerPixel);
}

double byteRate(const CapturePlan& plan, const Detail& detail) {
  if (isH264(plan)) return (plan.bitRate > 0 ? plan.bitRate : policyBitRate(plan)) / 8;
  return pixels(plan) * frameRate(plan) * detail.get() * relativeSize(plan.quality);
}

CapturePlan planForLine(const CapturePlan& full, double lineRate, const Detail& detail,
                        const CapturePlan& now) {
  if (lineRate <= 0 || byteRate(full, detail) <= lineRate) return full;
  CapturePlan plan = full;
  plan.isThinned = true;
  const double fullRate = frameRate(full);
  const double pixelRate = lineRate / poorest(full, detail);
  fitSize(plan, full, pixelRate, std::min(kSmoothRate, fullRate), now);
  // A frame that is smaller already is not worth a higher rate.
  const double fastest = pixels(plan) < pixels(full) ? std::min(kSmoothRate, fullRate) : fullRate;
  const double rate =
      std::clamp(pixelRate / pixels(plan), std::min(kSlowestRate, fastest), fastest);
  if (rate < fullRate) plan.interval = static_cast<std::int64_t>(1e6 / rate);
  if (isH264(plan)) {
    plan.bitRate = 8 * lineRate;
  } else {
    const double size = lineRate / (pixels(plan) * rate) / detail.get();
    plan.quality =
        std::clamp(qualityFor(size), std::min(kPoorestQuality, full.quality), full.quality);
  }
  return plan;
}

}  // namespace lumsar::service
