#include "sources/missing_codec.h"

#include <array>

#include "base/text/format.h"

namespace lumsar::service {
namespace {

constexpr std::size_t kDescription = 3;
constexpr std::size_t kElement = 4;
constexpr std::string_view kSound = "decoder-audio/";

struct Package {
  std::string_view type;  // of what is decoded or demultiplexed
  std::string_view name;
};

// Debian's and Ubuntu's; what is not listed here is in the last one, if anywhere.
constexpr std::array kPackages = {
    Package{"image/jpeg", "gstreamer1.0-plugins-good"},
    Package{"image/png", "gstreamer1.0-plugins-good"},
    Package{"video/quicktime", "gstreamer1.0-plugins-good"},
    Package{"video/webm", "gstreamer1.0-plugins-good"},
    Package{"video/x-flv", "gstreamer1.0-plugins-good"},
    Package{"video/x-matroska", "gstreamer1.0-plugins-good"},
    Package{"video/x-msvideo", "gstreamer1.0-plugins-good"},
    Package{"video/x-vp8", "gstreamer1.0-plugins-good"},
    Package{"video/x-vp9", "gstreamer1.0-plugins-good"},
    Package{"image/svg+xml", "gstreamer1.0-plugins-bad"},
    Package{"image/webp", "gstreamer1.0-plugins-bad"},
    Package{"video/mpegts", "gstreamer1.0-plugins-bad"},
    Package{"video/x-av1", "gstreamer1.0-plugins-bad"},
    Package{"video/x-ms-asf", "gstreamer1.0-plugins-ugly"},
};
constexpr std::string_view kFallback = "gstreamer1.0-libav";

std::string_view field(std::string_view detail, std::size_t index) {
  for (; index > 0; --index) {
    const std::size_t bar = detail.find('|');
    if (bar == std::string_view::npos) return {};
    detail.remove_prefix(bar + 1);
  }
  return detail.substr(0, detail.find('|'));
}

std::string_view packageOf(std::string_view element) {
  const std::string_view caps = element.substr(element.find('-') + 1);
  const std::string_view type = caps.substr(0, caps.find(','));
  for (const Package& package : kPackages) {
    if (package.type == type) return package.name;
  }
  return kFallback;
}

}  // namespace

std::string missingCodec(const std::vector<std::string>& details) {
  for (const std::string_view detail : details) {
    const std::string_view element = field(detail, kElement);
    if (element.starts_with(kSound)) continue;
    return base::text("the {} is missing; install the package {}", field(detail, kDescription),
                      packageOf(element));
  }
  return {};
}

}  // namespace lumsar::service
