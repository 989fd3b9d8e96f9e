// The seam between the video device sink and the kernel: listing loopback devices, opening one,
// setting its format, writing to it, finding out who else has it open. VideoSystem is thread-safe.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/text/bytes.h"

namespace lumsar::agent {

struct VideoFormat {
  std::uint16_t width = 0;
  std::uint16_t height = 0;
  std::uint32_t encoding = 0;       // V4L2's numbers are the record's numbers
  std::uint32_t frameInterval = 0;  // µs, 0 if not known
  std::size_t room = 0;             // the largest frame, told by the device
};

class VideoDevice {
 public:
  virtual ~VideoDevice() = default;
  // False with the reason in `why`; otherwise `format` becomes what the device has accepted.
  virtual bool setFormat(VideoFormat& format, std::string& why) = 0;
  virtual bool write(base::Bytes frame) = 0;
  // Readable when a program has opened or closed the device; -1 if that cannot be known.
  virtual int changes() const = 0;
  virtual void clearChanges() = 0;
  // How many other programs have it open.
  virtual int readers() const = 0;
};

class VideoSystem {
 public:
  virtual ~VideoSystem() = default;
  virtual std::vector<std::string> loopbackDevices() = 0;
  // Null with the reason in `why`.
  virtual std::unique_ptr<VideoDevice> open(const std::string& path, std::string& why) = 0;
};

// How many other programs have the device (or file) open. Searches /proc, which shows programs
// of other users only to root: `incomplete` becomes true if some were hidden.
int countOpeners(const std::string& path, bool& incomplete);

std::unique_ptr<VideoSystem> kernelVideoSystem();

}  // namespace lumsar::agent
