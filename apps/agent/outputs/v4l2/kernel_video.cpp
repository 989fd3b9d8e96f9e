#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

#include "base/log.h"
#include "base/system/fd.h"
#include "outputs/v4l2/video_system.h"
#include "protocol/camera_record.h"

namespace lumsar::agent {
namespace {

bool control(int fd, unsigned long request, void* argument) {
  int result = 0;
  do {
    result = ioctl(fd, request, argument);
  } while (result < 0 && errno == EINTR);
  return result == 0;
}

bool isLoopback(int fd) {
  v4l2_capability capability{};
  return control(fd, VIDIOC_QUERYCAP, &capability) &&
         std::strncmp(reinterpret_cast<const char*>(capability.driver), "v4l2 loopback",
                      sizeof capability.driver) == 0;
}

class KernelDevice : public VideoDevice {
 public:
  KernelDevice(base::UniqueFd device, std::string path)
      : m_device(std::move(device)),
        m_path(std::move(path)),
        m_watch(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    inotify_add_watch(m_watch.get(), m_path.c_str(), IN_OPEN | IN_CLOSE);
  }

  bool setFormat(VideoFormat& format, std::string& why) override;
  bool write(base::Bytes frame) override {
    return ::write(m_device.get(), frame.data(), frame.size()) ==
           static_cast<ssize_t>(frame.size());
  }
  int changes() const override { return m_watch.get(); }
  void clearChanges() override {
    std::array<char, 4096> events;
    while (read(m_watch.get(), events.data(), events.size()) > 0) {
    }
  }
  int readers() const override;

 private:
  void setInterval(std::uint32_t micros);

  base::UniqueFd m_device;
  std::string m_path;
  base::UniqueFd m_watch;
  mutable bool m_loggedIncomplete = false;
};

bool KernelDevice::setFormat(VideoFormat& format, std::string& why) {
  v4l2_format request{};
  request.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
  request.fmt.pix.width = format.width;  // 0 becomes the driver's default
  request.fmt.pix.height = format.height;
  request.fmt.pix.pixelformat = format.encoding;
  request.fmt.pix.field = V4L2_FIELD_NONE;
  if (!control(m_device.get(), VIDIOC_S_FMT, &request)) {
    why = base::text("it refuses {}: {}", protocol::encodingName(format.encoding),
                     base::systemError());
    return false;
  }
  // The driver changes the request silently, above all while a reader keeps another format.
  if (request.fmt.pix.pixelformat != format.encoding) {
    why = base::text("it has the format {} instead of {}; close the programs that have it open",
                     protocol::encodingName(request.fmt.pix.pixelformat),
                     protocol::encodingName(format.encoding));
    return false;
  }
  format.width = static_cast<std::uint16_t>(request.fmt.pix.width);
  format.height = static_cast<std::uint16_t>(request.fmt.pix.height);
  format.room = request.fmt.pix.sizeimage;
  setInterval(format.frameInterval);
  // Makes it a camera to other programs before the first frame, and an output again when closed.
  int type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
  control(m_device.get(), VIDIOC_STREAMON, &type);
  return true;
}

void KernelDevice::setInterval(std::uint32_t micros) {
  if (micros == 0) return;
  v4l2_streamparm parameters{};
  parameters.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
  parameters.parm.output.timeperframe = {micros, 1'000'000};
  control(m_device.get(), VIDIOC_S_PARM, &parameters);  // on failure readers see a default rate
}

int KernelDevice::readers() const {
  bool incomplete = false;
  const int count = countOpeners(m_path, incomplete);
  if (incomplete && !std::exchange(m_loggedIncomplete, true)) {
    base::logWarning(
        "{}: programs of other users that open it cannot be seen, so they will not switch the "
        "camera on; run as root or with CAP_SYS_PTRACE",
        m_path);
  }
  return count;
}

class KernelVideoSystem : public VideoSystem {
 public:
  std::vector<std::string> loopbackDevices() override {
    std::vector<std::string> paths;
    std::error_code error;
    for (const auto& entry :
         std::filesystem::directory_iterator("/sys/devices/virtual/video4linux", error)) {
      const std::string path = "/dev/" + entry.path().filename().string();
      const base::UniqueFd device(::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
      if (device && isLoopback(device.get())) paths.push_back(path);
    }
    // By their numbers: video9 before video10.
    std::ranges::sort(paths, {}, [](const auto& path) { return std::pair(path.size(), path); });
    return paths;
  }

  std::unique_ptr<VideoDevice> open(const std::string& path, std::string& why) override {
    base::UniqueFd device(::open(path.c_str(), O_RDWR | O_CLOEXEC));
    if (!device) {
      why = base::systemError();
    } else if (!isLoopback(device.get())) {
      why = "it is not a v4l2loopback device, so nothing can be written to it";
    } else {
      return std::make_unique<KernelDevice>(std::move(device), path);
    }
    return nullptr;
  }
};

}  // namespace

std::unique_ptr<VideoSystem> kernelVideoSystem() {
  return std::make_unique<KernelVideoSystem>();
}

}  // namespace lumsar::agent
