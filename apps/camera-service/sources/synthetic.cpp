#include "sources/synthetic.h"

#include <array>
#include <charconv>
#include <functional>
#include <numeric>
#include <stdexcept>

#include "base/text/format.h"
#include "capture/clock_stamp.h"

namespace lumsar::service {
namespace {

const CameraFormat kDefaultFormat = {{}, 1280, 720, 30, 1};
constexpr int kMinSide = 64;
constexpr int kMaxSide = 4096;
constexpr int kMaxRate = 120;

// Reads a number from `text` up to the end or to `separator`, which is removed as well.
int takeNumber(std::string_view& text, char separator) {
  int number = -1;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  if (error != std::errc{}) return -1;
  if (!text.empty()) {
    if (text.front() != separator || text.size() == 1) return -1;
    text.remove_prefix(1);
  }
  return number;
}

bool within(int value, int low, int high) {
  return value >= low && value <= high;
}

CameraFormat parseFormat(std::string_view text) {
  CameraFormat format = kDefaultFormat;
  format.encoding = "I420";
  if (text.empty()) return format;
  format.width = takeNumber(text, 'x');
  format.height = takeNumber(text, '@');
  if (!text.empty()) format.rateNumerator = takeNumber(text, '\0');
  if (!text.empty() || !within(format.width, kMinSide, kMaxSide) ||
      !within(format.height, kMinSide, kMaxSide) || !within(format.rateNumerator, 1, kMaxRate) ||
      format.width % 2 != 0 || format.height % 2 != 0) {
    throw std::invalid_argument(base::text(
        "expected WIDTHxHEIGHT@RATE with even sides from {} to {} and a rate from 1 to {}, "
        "such as 1280x720@30",
        kMinSide, kMaxSide, kMaxRate));
  }
  return format;
}

// Cameras of different names should not look alike.
std::string pattern(const std::string& name) {
  static constexpr std::array kPatterns = {
      "pattern=smpte horizontal-speed=4", "pattern=ball background-color=0xff204060",
      "pattern=smpte75 horizontal-speed=-4", "pattern=ball background-color=0xff602040"};
  const unsigned int sum = std::accumulate(
      name.begin(), name.end(), 0U,
      [](unsigned int s, char c) { return s * 31 + static_cast<unsigned char>(c); });
  return kPatterns[sum % kPatterns.size()];
}

GstElement* makeSource(const std::string& name, const CameraFormat& format) {
  const std::string description = base::text(
      "videotestsrc is-live=true {} ! "
      "video/x-raw,format=I420,width={},height={},framerate={}/1 ! "
      "identity name=clock silent=true",
      pattern(name), format.width, format.height, format.rateNumerator);
  GstElement* bin = makeSourceBin(description);
  if (bin != nullptr) stampClock(GST_BIN(bin), "clock", format.width, format.height);
  return bin;
}

}  // namespace

VirtualCamera syntheticCamera(const std::string& description) {
  const std::size_t comma = description.rfind(',');
  const std::string name = description.substr(0, comma);
  if (name.empty()) throw std::invalid_argument("expected a name, such as test:Front,1280x720@30");
  const CameraFormat format =
      parseFormat(comma == std::string::npos ? std::string_view{}
                                             : std::string_view(description).substr(comma + 1));
  return {"test:" + name, name, format, [name, format] { return makeSource(name, format); }};
}

}  // namespace lumsar::service
