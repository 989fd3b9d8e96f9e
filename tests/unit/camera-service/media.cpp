#include "unit/camera-service/media.h"

#include <stdexcept>

#include "base/text/format.h"
#include "formats/gst_ptr.h"
#include "support/temporary_directory.h"

namespace lumsar::test {
void runPipeline(const std::string& description, const std::string& path) {
  gst_init(nullptr, nullptr);
  const std::string temporary = path + ".part";
  const service::GstPtr<GstElement> pipeline(
      gst_parse_launch((description + " ! filesink location=" + temporary).c_str(), nullptr));
  gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
  const service::GstPtr<GstBus> bus(gst_element_get_bus(pipeline.get()));
  const service::GstPtr<GstMessage> message(
      gst_bus_timed_pop_filtered(bus.get(), 20 * GST_SECOND,
                                 static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR)));
  const bool good = message && GST_MESSAGE_TYPE(message.get()) == GST_MESSAGE_EOS;
  gst_element_set_state(pipeline.get(), GST_STATE_NULL);
  if (!good || std::rename(temporary.c_str(), path.c_str()) != 0) {
    throw std::runtime_error("cannot make " + path);
  }
}

void makePicture(const std::string& path, int width, int height) {
  runPipeline(base::text("videotestsrc num-buffers=1 ! video/x-raw,width={},height={} ! jpegenc",
                         width, height),
              path);
}

void makeMovie(const std::string& path, int width, int height, int frames, int quality,
               const std::string& pattern) {
  runPipeline(base::text("videotestsrc pattern={} num-buffers={} ! "
                         "video/x-raw,format=I420,framerate=30/1,width={},height={} ! "
                         "jpegenc quality={} ! avimux",
                         pattern, frames, width, height, quality),
              path);
}

void makeRawMovie(const std::string& path, int width, int height, int frames) {
  runPipeline(base::text("videotestsrc num-buffers={} ! "
                         "video/x-raw,format=I420,framerate=30/1,width={},height={} ! avimux",
                         frames, width, height),
              path);
}

std::vector<unsigned char> makeJpeg(int width, int height, int quality,
                                    const std::string& pattern) {
  const TemporaryDirectory dir;
  runPipeline(base::text("videotestsrc pattern={} num-buffers=1 ! "
                         "video/x-raw,format=I420,width={},height={} ! jpegenc quality={}",
                         pattern, width, height, quality),
              dir / "frame");
  const std::string jpeg = readFile(dir / "frame");
  return {jpeg.begin(), jpeg.end()};
}

PictureSize jpegSize(std::span<const unsigned char> jpeg) {
  const std::size_t size = jpeg.size();
  if (size < 4 || jpeg[0] != 0xFF || jpeg[1] != 0xD8) return {};
  if (jpeg[size - 2] != 0xFF || jpeg[size - 1] != 0xD9) return {};
  for (std::size_t at = 2; at + 9 < size && jpeg[at] == 0xFF;) {
    if (jpeg[at + 1] >= 0xC0 && jpeg[at + 1] <= 0xC2) {
      return {jpeg[at + 7] * 256 + jpeg[at + 8], jpeg[at + 5] * 256 + jpeg[at + 6]};
    }
    at += 2 + static_cast<std::size_t>(jpeg[at + 2] * 256 + jpeg[at + 3]);
  }
  return {};
}

std::vector<unsigned char> withoutSegments(std::vector<unsigned char> jpeg, unsigned char marker) {
  for (std::size_t at = 2; at + 4 < jpeg.size() && jpeg[at + 1] != 0xDA;) {
    const auto size = 2 + (jpeg[at + 2] << 8 | jpeg[at + 3]);
    const auto begin = jpeg.begin() + static_cast<std::ptrdiff_t>(at);
    if (jpeg[at + 1] == marker) {
      jpeg.erase(begin, begin + size);
    } else {
      at += static_cast<std::size_t>(size);
    }
  }
  return jpeg;
}

}  // namespace lumsar::test
