#include "feeds/movie.h"

#include <algorithm>
#include <random>
#include <vector>

#include "base/text/format.h"
#include "support/temporary_directory.h"
#include "unit/camera-service/media.h"

namespace lumsar::bench {
namespace {

constexpr std::size_t kWidth = 1280;
constexpr std::size_t kHeight = 720;
constexpr std::size_t kViews = 60;
constexpr std::size_t kStep = 4;  // pixels from view to view

// A view with detail of all sizes, as nature has it: octaves of smooth noise.
std::vector<double> landscape(std::size_t width, std::size_t height) {
  std::vector<double> view(width * height, 128);
  std::mt19937 random(1);
  std::uniform_real_distribution<double> level(-1, 1);
  for (std::size_t cell = 256; cell >= 2; cell /= 2) {
    const auto side = static_cast<double>(cell);
    const std::size_t columns = width / cell + 2;
    std::vector<double> grid(columns * (height / cell + 2));
    for (double& value : grid) value = level(random) * side * 0.35;
    for (std::size_t y = 0; y < height; ++y) {
      for (std::size_t x = 0; x < width; ++x) {
        const double right = static_cast<double>(x % cell) / side;
        const double down = static_cast<double>(y % cell) / side;
        const double* corner = &grid[y / cell * columns + x / cell];
        view[y * width + x] += (corner[0] * (1 - right) + corner[1] * right) * (1 - down) +
                               (corner[columns] * (1 - right) + corner[columns + 1] * right) * down;
      }
    }
  }
  return view;
}

// Raw I420 frames: the camera turns, and its sensor adds noise.
void writeFrames(const std::string& path) {
  const std::size_t width = kWidth + kStep * kViews;
  const std::vector<double> view = landscape(width, kHeight);
  std::mt19937 random(2);
  std::normal_distribution<double> noise(0, 1.5);
  std::string frames;
  for (std::size_t i = 0; i < kViews; ++i) {
    for (std::size_t y = 0; y < kHeight; ++y) {
      for (std::size_t x = 0; x < kWidth; ++x) {
        const double level = view[y * width + x + kStep * i] + noise(random);
        frames.push_back(static_cast<char>(std::clamp(level, 16.0, 235.0)));
      }
    }
    frames.append(kWidth * kHeight / 4, '\x78');
    frames.append(kWidth * kHeight / 4, '\x88');
  }
  test::writeFile(path, frames);
}

}  // namespace

std::string makeMovie(const std::string& directory, int frames) {
  writeFrames(directory + "/raw");
  test::runPipeline(
      base::text("multifilesrc location={}/raw loop=true num-buffers={} ! "
                 "rawvideoparse width={} height={} framerate=30/1 ! jpegenc quality=85 ! avimux",
                 directory, 1 + frames / static_cast<int>(kViews), kWidth, kHeight),
      directory + "/movie.avi");
  return directory + "/movie.avi";
}

}  // namespace lumsar::bench
