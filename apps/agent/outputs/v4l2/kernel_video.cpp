// VideoSystem on the real kernel: v4l2loopback devices.
// The system: any thread. A device: bound to its sink's thread.
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

#include "app/log.h"
#include "base/fd.h"
#include "outputs/v4l2/video_system.h"

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
  bool write(Bytes picture) override {
    return ::write(m_device.get(), picture.data(), picture.size()) ==
           static_cast<ssize_t>(picture.size());
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
  mutable bool m_saidBlind = false;
};

bool KernelDevice::setFormat(VideoFormat& format, std::string& why) {
  v4l2_format wish{};
  wish.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
  wish.fmt.pix.width = format.width;  // 0 becomes the driver's default
  wish.fmt.pix.height = format.height;
  wish.fmt.pix.pixelformat =
      format.encoding == kEncodingMjpg ? std::uint32_t{V4L2_PIX_FMT_MJPEG} : format.encoding;
  wish.fmt.pix.field = V4L2_FIELD_NONE;
  if (!control(m_device.get(), VIDIOC_S_FMT, &wish)) {
    why = "it refuses " + encodingName(format.encoding) + ": " + systemError();
    return false;
  }
  // The driver changes a wish silently, above all while a reader holds on to another format.
  if (wish.fmt.pix.pixelformat != V4L2_PIX_FMT_MJPEG &&
      wish.fmt.pix.pixelformat != format.encoding) {
    why = "it has the format " + encodingName(wish.fmt.pix.pixelformat) + " instead of " +
          encodingName(format.encoding) + "; close the programs that have it open";
    return false;
  }
  format.width = static_cast<std::uint16_t>(wish.fmt.pix.width);
  format.height = static_cast<std::uint16_t>(wish.fmt.pix.height);
  format.room = wish.fmt.pix.sizeimage;
  setInterval(format.frameInterval);
  // Makes it a camera to other programs before the first picture, and an output again when closed.
  int type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
  control(m_device.get(), VIDIOC_STREAMON, &type);
  return true;
}

void KernelDevice::setInterval(std::uint32_t micros) {
  if (micros == 0) return;
  v4l2_streamparm parameters{};
  parameters.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
  parameters.parm.output.timeperframe = {micros, 1'000'000};
  control(m_device.get(), VIDIOC_S_PARM, &parameters);  // readers then see a default rate
}

int KernelDevice::readers() const {
  bool blind = false;
  const int count = countOpeners(m_path, blind);
  if (blind && !std::exchange(m_saidBlind, true)) {
    logWarning(m_path,
               ": programs of other users cannot be seen using it, so they will not switch "
               "the camera on; run as root or with CAP_SYS_PTRACE");
  }
  return count;
}

class KernelVideoSystem : public VideoSystem {
 public:
  std::vector<std::string> loopbackDevices() override {
    std::vector<std::pair<int, std::string>> found;
    std::error_code error;
    for (const auto& entry :
         std::filesystem::directory_iterator("/sys/devices/virtual/video4linux", error)) {
      const std::string name = entry.path().filename();
      const std::string path = "/dev/" + name;
      const base::UniqueFd device(::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
      if (!device || !isLoopback(device.get())) continue;
      found.emplace_back(std::atoi(name.substr(std::strlen("video")).c_str()), path);
    }
    std::ranges::sort(found);
    std::vector<std::string> paths;
    paths.reserve(found.size());
    for (const auto& [number, path] : found) paths.push_back(path);
    return paths;
  }

  std::unique_ptr<VideoDevice> open(const std::string& path, std::string& why) override {
    base::UniqueFd device(::open(path.c_str(), O_RDWR | O_CLOEXEC));
    if (!device) {
      why = systemError();
    } else if (!isLoopback(device.get())) {
      why = "it is no v4l2loopback device, so nothing can be written to it";
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
