// Planning a capture: see capture_plan.h. Called on the main thread.
#include "capture/capture_plan.h"

#include <algorithm>
#include <tuple>

#include "lumsar/camera_data.h"

namespace lumsar::service {
namespace {

constexpr double kSmoothRate = 15;  // a larger picture is not worth fewer frames a second than this

std::int64_t sourceInterval(const CameraFormat& format) {
  if (format.rateNumerator <= 0) return 0;
  return static_cast<std::int64_t>(1e6 / format.rate());
}

// Place in the wish list; behind its end for formats that are not wished for.
std::size_t preference(const CameraFormat& format, const std::vector<std::string>& wishes) {
  const std::string name = format.encoding == "YUY2" ? "YUYV" : format.encoding;
  const auto found = std::ranges::find_if(
      wishes, [&](const std::string& wish) { return wish == name || wish == format.encoding; });
  return static_cast<std::size_t>(found - wishes.begin());
}

CameraFormat chooseSource(const std::vector<CameraFormat>& formats, const PolicyRule& rule) {
  const auto rank = [&rule](const CameraFormat& format) {
    const std::size_t place = preference(format, rule.pixelFormats);
    const bool fits = format.width <= rule.maxWidth && format.height <= rule.maxHeight;
    const int area = format.width * format.height;
    // Of those that fit the largest, of the others the smallest, for it must be scaled down.
    return std::make_tuple(place < rule.pixelFormats.size(), format.rate() >= kSmoothRate, fits,
                           fits ? area : -area, -static_cast<std::int64_t>(place), format.rate());
  };
  if (formats.empty()) return {};
  return *std::ranges::max_element(formats, {}, rank);
}

int evenAtLeastTwo(std::int64_t side) {
  return static_cast<int>(std::max<std::int64_t>(side & ~1LL, 2));
}

void fitInto(int maxWidth, int maxHeight, CapturePlan& plan) {
  const std::int64_t width = plan.source.width;
  const std::int64_t height = plan.source.height;
  plan.width = plan.source.width;
  plan.height = plan.source.height;
  if (width <= maxWidth && height <= maxHeight) {
    if (plan.encoding != kEncodingH264) return;
    plan.width = evenAtLeastTwo(width);  // H.264 knows no odd sides
    plan.height = evenAtLeastTwo(height);
    return;
  }
  const bool byWidth = width * maxHeight >= height * maxWidth;
  plan.width = evenAtLeastTwo(byWidth ? maxWidth : width * maxHeight / height);
  plan.height = evenAtLeastTwo(byWidth ? height * maxWidth / width : maxHeight);
}

}  // namespace

CaptureRequest combined(const CaptureRequest& first, const CaptureRequest& second) {
  CaptureRequest result = first;
  result.rule.maxWidth = std::min(first.rule.maxWidth, second.rule.maxWidth);
  result.rule.maxHeight = std::min(first.rule.maxHeight, second.rule.maxHeight);
  result.rule.quality = std::min(first.rule.quality, second.rule.quality);
  result.rule.h264 = first.rule.h264 && second.rule.h264;
  result.interval = result.rule.h264 ? std::max(first.interval, second.interval)
                                     : std::min(first.interval, second.interval);
  return result;
}

std::int64_t CapturePlan::frameInterval() const {
  return std::max(interval, sourceInterval(source));
}

CapturePlan planCapture(const std::vector<CameraFormat>& formats, const CaptureRequest& request) {
  CapturePlan plan;
  plan.source = chooseSource(formats, request.rule);
  plan.encoding = request.rule.h264 ? kEncodingH264 : kEncodingMjpg;
  fitInto(request.rule.maxWidth, request.rule.maxHeight, plan);
  plan.quality = request.rule.quality;
  plan.interval = request.interval > sourceInterval(plan.source) ? request.interval : 0;
  return plan;
}

}  // namespace lumsar::service
