// What does the camera service spend on a frame of a 720p MJPG camera of quality 85? The floor is
// the camera alone: a video file that is read at its rate.
//   bench_pass_through --table [CAMERA-SERVICE]
// prints what several policies cost and how many bytes each sends.
#include <gst/gst.h>

#include <atomic>
#include <cstdio>
#include <ctime>
#include <random>

#include "capture/encoder.h"
#include "harness/rows.h"
#include "sources/file_probe.h"
#include "unit/camera-service/test_host.h"

namespace lumsar::bench {
namespace {

constexpr std::size_t kWidth = 1280;
constexpr std::size_t kHeight = 720;
constexpr std::size_t kViews = 60;
constexpr std::size_t kStep = 4;  // pixels from view to view
constexpr int kMeasured = 480;    // 16 s
constexpr int kSkipped = 60;

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

// Such a camera's frames as a video file.
void makeMovie(const std::string& directory) {
  writeFrames(directory + "/raw");
  test::runPipeline(
      base::text("multifilesrc location={}/raw loop=true num-buffers={} ! "
                 "rawvideoparse width={} height={} framerate=30/1 ! jpegenc quality=85 ! avimux",
                 directory, 1 + (kSkipped + kMeasured) / static_cast<int>(kViews), kWidth, kHeight),
      directory + "/movie.avi");
}

struct Figures {
  double processorTime = 0;  // ms a frame
  double size = 0;           // KB
  std::string treatment;
};

class Measurement : public test::ServiceTest {
 public:
  Measurement() {
    gst_init(nullptr, nullptr);
    makeMovie(dir.path());
  }
  void TestBody() override {}

  // The service's source of such frames, without the service.
  double source() {
    test::Process process({"/proc/self/exe", "--source", m_movie});
    process.wait(kPatience);
    return std::stod(process.output());
  }

  Figures service(const QJsonObject& policy, const std::string& program = CAMERA_SERVICE) {
    test::Process process({program, "--ipc-channel", channel, "--camera", "file:" + m_movie});
    process.says("listening at");
    test::TestHost host(channel);
    host.policy(policy);
    watch(host, "file:movie.avi");
    return figures(process, host);
  }

 private:
  static constexpr std::chrono::minutes kPatience{2};

  static Figures figures(test::Process& process, test::TestHost& host) {
    const auto reach = [&](std::size_t frames) {
      test::eventually([&] { return host.records.count(CameraDataKind::Frame) >= frames; },
                       kPatience);
    };
    reach(kSkipped);
    host.records.clear();
    const auto before = process.processorTime();
    reach(kMeasured);
    const std::chrono::duration<double, std::milli> used = process.processorTime() - before;
    std::size_t bytes = 0;
    const auto frames = host.records.of(CameraDataKind::Frame);
    for (const test::Record& frame : frames) bytes += frame.picture.size();
    const auto count = static_cast<double>(frames.size());
    return {used.count() / count, static_cast<double>(bytes) / 1e3 / count,
            test::TestHost::camera(host.status(), "file:movie.avi")
                .value("treatment")
                .toString()
                .toStdString()};
  }

  const std::string m_movie = dir / "movie.avi";
};

void printTable(const std::string& service) {
  Measurement measurement;
  const auto print = [&](const char* name, const QJsonObject& policy) {
    const Figures row = measurement.service(policy, service);
    std::printf("| %s | %.2f | %.0f | %.2f | %s |\n", name, row.processorTime, row.size,
                row.size * 30 / 1e3, row.treatment.c_str());
    std::fflush(stdout);
  };
  std::puts(
      "| policy | ms of processor time a frame | KB a frame | MB/s at 30 frames/s | status |");
  std::puts("|---|---|---|---|---|");
  std::printf("| the camera alone | %.2f | | | |\n", measurement.source());
  print("quality 85", {{"cameraQuality", 85}});
  print("default (quality 50)", {});
  print("quality 85, within 640*640", {{"cameraQuality", 85}, {"cameraMaxResolution", "640*640"}});
  if (service::h264Available()) print("H264, quality 50", {{"cameraEncodeType", "H264"}});
}

double processorTime() {
  return static_cast<double>(std::clock()) * 1e3 / CLOCKS_PER_SEC;
}

// Plays the file and prints the processor time of a frame, in ms.
void playSource(const std::string& path) {
  gst_init(nullptr, nullptr);
  const service::GstPtr<GstElement> pipeline(gst_pipeline_new(nullptr));
  GstElement* source = service::makeFileSource(path, service::probeFile(path));
  GstElement* sink = gst_element_factory_make("fakesink", nullptr);
  g_object_set(sink, "signal-handoffs", TRUE, nullptr);
  gst_bin_add_many(GST_BIN(pipeline.get()), source, sink, nullptr);
  gst_element_link(source, sink);
  std::atomic<int> frames = 0;
  const auto onFrame = +[](GstElement*, GstBuffer*, GstPad*, std::atomic<int>* count) { ++*count; };
  g_signal_connect(sink, "handoff", G_CALLBACK(onFrame), &frames);
  gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
  const auto reach = [&](int count) {
    while (frames < count) std::this_thread::sleep_for(std::chrono::milliseconds(100));
  };
  reach(kSkipped);
  const double before = processorTime();
  reach(kSkipped + kMeasured);
  std::printf("%.2f", (processorTime() - before) / kMeasured);
  gst_element_set_state(pipeline.get(), GST_STATE_NULL);
}

}  // namespace
}  // namespace lumsar::bench

int main(int argc, char** argv) {
  using namespace lumsar::bench;
  const std::string mode = argc > 1 ? argv[1] : "";
  if (mode == "--source" && argc > 2) return playSource(argv[2]), 0;
  if (mode == "--table") return printTable(argc > 2 ? argv[2] : CAMERA_SERVICE), 0;
  std::optional<Measurement> measurement;
  const auto measured = [&]() -> Measurement& {
    return measurement ? *measurement : measurement.emplace();
  };
  const Row row = {"service: 720p MJPG frame, passed through",
                   "ms",
                   [&] { return measured().source(); },
                   [&] {
                     return measured().service({{"cameraQuality", 85}}).processorTime;
                   },
                   1.5,
                   3};
  return runRows(argc, argv, {row});
}
