// Pictures and movies for tests, made by GStreamer, and a look into JPEG data. Test's main thread.
#pragma once

#include <span>
#include <string>
#include <vector>

namespace lumsar::test {

// What the pipeline makes, as a file that appears when it is whole.
void runPipeline(const std::string& description, const std::string& path);

void makePicture(const std::string& path, int width, int height);
// Of `frames` JPEG frames, 30 a second.
void makeMovie(const std::string& path, int width, int height, int frames, int quality = 85,
               const std::string& pattern = "ball");

void makeRawMovie(const std::string& path, int width, int height, int frames);

// One frame as a webcam delivers it.
std::vector<unsigned char> makeJpeg(int width, int height, int quality,
                                    const std::string& pattern = "smpte");

struct PictureSize {
  int width = 0;
  int height = 0;
  bool operator==(const PictureSize&) const = default;
};

// The size in a JPEG's frame header; zero unless the data are one whole JPEG.
PictureSize jpegSize(std::span<const unsigned char> jpeg);

// The same frame without its segments of this kind.
std::vector<unsigned char> withoutSegments(std::vector<unsigned char> jpeg, unsigned char marker);

}  // namespace lumsar::test
