// guest_reader: a program as any that uses a camera. Runs in the guest of the tests and of the
// demonstration.
//   guest_reader DEVICE COUNT [FILE]
//   guest_reader FILE
// Prints what the device is, then a line for each of COUNT frames: its number, size in bytes and
// hash. FILE receives the last frame. Exit code 1: no capture device, or no frame in time.
// With a file alone, which another program has saved: the same of each JPEG in it.
#include <fcntl.h>
#include <linux/videodev2.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <span>
#include <string_view>
#include <vector>

#include "support/messages.h"

namespace {

constexpr unsigned kBuffers = 4;
constexpr int kPatienceMs = 20000;

using Picture = std::span<const unsigned char>;

class Reader {
 public:
  explicit Reader(const char* device) : m_device(open(device, O_RDWR | O_CLOEXEC)) {
    if (m_device < 0) fail(device);
  }

  void describe() {
    v4l2_capability capability{};
    ask(VIDIOC_QUERYCAP, &capability, "VIDIOC_QUERYCAP");
    if ((capability.device_caps & V4L2_CAP_VIDEO_CAPTURE) == 0) {
      std::printf("no capture device, capabilities 0x%x\n", capability.device_caps);
      std::exit(1);
    }
    v4l2_format format{};
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    ask(VIDIOC_G_FMT, &format, "VIDIOC_G_FMT");
    const auto& picture = format.fmt.pix;
    std::printf("capture device \"%s\", %.4s %ux%u\n",
                reinterpret_cast<const char*>(capability.card),
                reinterpret_cast<const char*>(&picture.pixelformat), picture.width, picture.height);
  }

  void begin() {
    v4l2_requestbuffers request{};
    request.count = kBuffers;
    request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    request.memory = V4L2_MEMORY_MMAP;
    ask(VIDIOC_REQBUFS, &request, "VIDIOC_REQBUFS");
    for (unsigned i = 0; i < request.count; ++i) {
      v4l2_buffer buffer = empty(i);
      ask(VIDIOC_QUERYBUF, &buffer, "VIDIOC_QUERYBUF");
      void* memory = mmap(nullptr, buffer.length, PROT_READ, MAP_SHARED, m_device,
                          static_cast<off_t>(buffer.m.offset));
      if (memory == MAP_FAILED) fail("mmap");
      m_memory.push_back(static_cast<const unsigned char*>(memory));
      ask(VIDIOC_QBUF, &buffer, "VIDIOC_QBUF");
    }
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    ask(VIDIOC_STREAMON, &type, "VIDIOC_STREAMON");
  }

  // Passes the next frame to `use`.
  template <class Use>
  void next(Use use) {
    pollfd readable{m_device, POLLIN, 0};
    if (poll(&readable, 1, kPatienceMs) <= 0) {
      std::puts("no picture in time");
      std::exit(1);
    }
    v4l2_buffer buffer = empty(0);
    ask(VIDIOC_DQBUF, &buffer, "VIDIOC_DQBUF");
    use(Picture(m_memory[buffer.index], buffer.bytesused));
    ask(VIDIOC_QBUF, &buffer, "VIDIOC_QBUF");
  }

 private:
  [[noreturn]] static void fail(const char* what) {
    std::printf("%s: %s\n", what, std::strerror(errno));
    std::exit(1);
  }

  static v4l2_buffer empty(unsigned index) {
    v4l2_buffer buffer{};
    buffer.index = index;
    buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    buffer.memory = V4L2_MEMORY_MMAP;
    return buffer;
  }

  void ask(unsigned long request, void* argument, const char* name) const {
    while (ioctl(m_device, request, argument) != 0) {
      if (errno != EINTR) fail(name);
    }
  }

  int m_device;
  std::vector<const unsigned char*> m_memory;
};

void print(int number, Picture picture) {
  std::printf("picture %d %zu %016llx\n", number, picture.size(), lumsar::test::hash(picture));
}

int printFile(const char* name) {
  std::ifstream file(name, std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
  const std::string_view rest(bytes.data(), bytes.size());
  // Two bytes that no JPEG has but at its begin or its end.
  constexpr std::string_view kBegin = "\xFF\xD8";
  constexpr std::string_view kEnd = "\xFF\xD9";
  int number = 0;
  for (std::size_t begin = 0, end = 0; begin < rest.size(); begin = end) {
    end = std::min(rest.find(kEnd, begin), rest.size() - kEnd.size()) + kEnd.size();
    const std::string_view jpeg = rest.substr(begin, end - begin);
    if (!jpeg.starts_with(kBegin)) continue;
    print(++number, {reinterpret_cast<const unsigned char*>(jpeg.data()), jpeg.size()});
  }
  return number > 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  if (argc == 2) return printFile(argv[1]);
  if (argc < 3) return 2;
  Reader reader(argv[1]);
  reader.describe();
  const int count = std::atoi(argv[2]);
  if (count == 0) return 0;
  reader.begin();
  for (int i = 1; i <= count; ++i) {
    reader.next([&](Picture picture) {
      print(i, picture);
      if (i < count || argc < 4) return;
      std::ofstream(argv[3], std::ios::binary)
          .write(reinterpret_cast<const char*>(picture.data()),
                 static_cast<std::streamsize>(picture.size()));
    });
  }
  return 0;
}
