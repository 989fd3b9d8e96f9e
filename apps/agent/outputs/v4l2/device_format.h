// DeviceFormat: in which format frames are written to a video device, as the user has chosen it.
#pragma once

#include <cstdint>

#include "decode/raw_format.h"

namespace lumsar::agent {

enum class DeviceFormat {
  Auto,    // MJPG as it comes; H.264, which hardly a program reads from a device, as I420
  Camera,  // as they come
  I420,
  Yuy2,
  Nv12,
};

inline std::uint32_t deviceEncoding(DeviceFormat format, std::uint32_t cameraEncoding,
                                    bool canDecode) {
  if (!canDecode) return cameraEncoding;
  switch (format) {
    case DeviceFormat::Auto:
      return cameraEncoding == kEncodingH264 ? kRawI420 : cameraEncoding;
    case DeviceFormat::I420:
      return kRawI420;
    case DeviceFormat::Yuy2:
      return kRawYuy2;
    case DeviceFormat::Nv12:
      return kRawNv12;
    case DeviceFormat::Camera:
      break;
  }
  return cameraEncoding;
}

}  // namespace lumsar::agent
