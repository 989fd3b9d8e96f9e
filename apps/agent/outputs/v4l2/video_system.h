// The seam between the video device sink and the kernel: listing loopback devices, opening one,
// setting its format, writing to it, finding out who else has it open. Tests put a fake here.
// VideoSystem: any thread. VideoDevice: bound to its sink's thread.
#ifndef LUMSAR_AGENT_OUTPUTS_V4L2_VIDEO_SYSTEM_H
#define LUMSAR_AGENT_OUTPUTS_V4L2_VIDEO_SYSTEM_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "outputs/record.h"

namespace lumsar::agent {

struct VideoFormat {
  std::uint16_t width = 0;
  std::uint16_t height = 0;
  std::uint32_t encoding = 0;       // V4L2's numbers are the record's numbers
  std::uint32_t frameInterval = 0;  // µs, 0 if not known
  std::size_t room = 0;             // the largest picture, told by the device
};

class VideoDevice {
 public:
  virtual ~VideoDevice() = default;
  // False with the reason in `why`; otherwise `format` is what the device really took.
  virtual bool setFormat(VideoFormat& format, std::string& why) = 0;
  virtual bool write(Bytes picture) = 0;
  // Readable when somebody has opened or closed the device; -1 if that cannot be known.
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

// Programs other than this one that have the device (or file) open, by looking through /proc, which
// shows those of other users only to root. `blind` becomes true if it hid some.
int countOpeners(const std::string& path, bool& blind);

std::unique_ptr<VideoSystem> kernelVideoSystem();

}  // namespace lumsar::agent

#endif
