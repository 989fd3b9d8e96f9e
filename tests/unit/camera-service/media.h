// Pictures and movies for tests, made by GStreamer, and a look into JPEG data. Test's main thread.
#pragma once

#include <span>
#include <string>

namespace lumsar::test {

void makePicture(const std::string& path, int width, int height);
void makeMovie(const std::string& path, int width, int height, int frames);

struct PictureSize {
  int width = 0;
  int height = 0;
  bool operator==(const PictureSize&) const = default;
};

// The size in a JPEG's frame header; zero unless the data are one whole JPEG.
PictureSize jpegSize(std::span<const unsigned char> jpeg);

}  // namespace lumsar::test
