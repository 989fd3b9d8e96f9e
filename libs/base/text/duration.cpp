#include "base/text/duration.h"

#include <cctype>
#include <charconv>
#include <optional>

#include "base/errors.h"
#include "base/text/format.h"

namespace lumsar::base {
namespace {

constexpr double kHour = 3600e3;
constexpr double kLongest = 10'000 * kHour;

std::optional<double> millisecondsIn(std::string_view unit) {
  if (unit == "ms") return 1;
  if (unit == "s" || unit.empty()) return 1e3;
  if (unit == "m") return 60e3;
  if (unit == "h") return kHour;
  return std::nullopt;
}

}  // namespace

std::chrono::milliseconds parseDuration(std::string_view given) {
  double value = 0;
  const char* end = given.data() + given.size();
  const auto [rest, error] = std::from_chars(given.data(), end, value, std::chars_format::fixed);
  const auto unit = millisecondsIn({rest, static_cast<std::size_t>(end - rest)});
  // A sign, "nan" and "inf" do not begin with a digit.
  const bool number = !given.empty() && std::isdigit(static_cast<unsigned char>(given[0])) != 0;
  if (!number || !unit) {
    throw UsageError(
        text("\"{}\" is not a valid duration; expected a number with ms, s, m or h, "
             "such as 10s or 1.5s",
             given));
  }
  if (error != std::errc() || value * *unit > kLongest) {
    throw UsageError(
        text("the duration \"{}\" is too long; at most 10000h, such as 10s or 8h", given));
  }
  return std::chrono::milliseconds(static_cast<std::int64_t>(value * *unit));
}

}  // namespace lumsar::base
