#include "formats/capture_plan.h"

#include <algorithm>
#include <compare>

#include "lumsar/camera_data.h"

namespace lumsar::service {
namespace {

constexpr double kSmoothRate = 15;  // a larger frame is not worth fewer of them a second

std::int64_t sourceInterval(const CameraFormat& format) {
  if (format.rateNumerator <= 0) return 0;
  return static_cast<std::int64_t>(1e6 / format.rate());
}

// Index in the list of wishes; its size for formats that are not in it.
std::size_t wishIndex(const CameraFormat& format, const std::vector<std::string>& wishes) {
  const std::string name = format.encoding == "YUY2" ? "YUYV" : format.encoding;
  const auto found = std::ranges::find_if(
      wishes, [&](const std::string& wish) { return wish == name || wish == format.encoding; });
  return static_cast<std::size_t>(found - wishes.begin());
}

// How well a format serves a rule. What comes first counts most.
struct Rank {
  bool isWished = false;
  bool isSmooth = false;
  bool fits = false;  // no need to scale it down
  int size = 0;       // the largest of those that fit, the smallest of the others
  std::int64_t wish = 0;
  double rate = 0;

  // NOLINTNEXTLINE(modernize-use-nullptr): taken for a pointer's comparison in version 14
  auto operator<=>(const Rank&) const = default;
};

Rank rank(const CameraFormat& format, const PolicyRule& rule) {
  const std::size_t index = wishIndex(format, rule.pixelFormats);
  const int area = format.width * format.height;
  Rank result;
  result.isWished = index < rule.pixelFormats.size();
  result.isSmooth = format.rate() >= kSmoothRate;
  result.fits = format.width <= rule.maxWidth && format.height <= rule.maxHeight;
  result.size = result.fits ? area : -area;
  result.wish = -static_cast<std::int64_t>(index);
  result.rate = format.rate();
  return result;
}

CameraFormat chooseSource(const std::vector<CameraFormat>& formats, const PolicyRule& rule) {
  if (formats.empty()) return {};
  return *std::ranges::max_element(
      formats, {}, [&rule](const CameraFormat& format) { return rank(format, rule); });
}

bool wantsH264(const CaptureRequest& request) {
  return request.rule.encoding == SentEncoding::H264;
}

int even(std::int64_t side) {
  return static_cast<int>(std::max<std::int64_t>(side & ~1LL, 2));
}

FrameSize sentSize(const CapturePlan& plan, const PolicyRule& rule) {
  const FrameSize size =
      scaledInto({plan.source.width, plan.source.height}, {rule.maxWidth, rule.maxHeight});
  if (plan.encoding != kEncodingH264) return size;
  return {even(size.width), even(size.height)};  // H.264 has no odd sides
}

}  // namespace

FrameSize scaledInto(FrameSize size, FrameSize limit) {
  if (size.width <= limit.width && size.height <= limit.height) return size;
  const std::int64_t width = size.width;
  const std::int64_t height = size.height;
  const bool byWidth = width * limit.height >= height * limit.width;
  return {even(byWidth ? limit.width : width * limit.height / height),
          even(byWidth ? height * limit.width / width : limit.height)};
}

CaptureRequest combined(const CaptureRequest& first, const CaptureRequest& second) {
  CaptureRequest result = first;
  result.rule.maxWidth = std::min(first.rule.maxWidth, second.rule.maxWidth);
  result.rule.maxHeight = std::min(first.rule.maxHeight, second.rule.maxHeight);
  result.rule.quality = std::min(first.rule.quality, second.rule.quality);
  const bool h264 = wantsH264(first) && wantsH264(second);
  result.rule.encoding = h264 ? SentEncoding::H264 : SentEncoding::Mjpg;
  result.interval =
      h264 ? std::max(first.interval, second.interval) : std::min(first.interval, second.interval);
  const auto [slower, faster] = std::minmax(first.lineRate, second.lineRate);
  result.lineRate = slower > 0 ? slower : faster;
  return result;
}

std::int64_t CapturePlan::frameInterval() const {
  return std::max(interval, sourceInterval(source));
}

CapturePlan planCapture(const std::vector<CameraFormat>& formats, const CaptureRequest& request) {
  CapturePlan plan;
  plan.source = chooseSource(formats, request.rule);
  plan.encoding = wantsH264(request) ? kEncodingH264 : kEncodingMjpg;
  const FrameSize size = sentSize(plan, request.rule);
  plan.width = size.width;
  plan.height = size.height;
  plan.quality = request.rule.quality;
  plan.interval = request.interval > sourceInterval(plan.source) ? request.interval : 0;
  return plan;
}

}  // namespace lumsar::service
