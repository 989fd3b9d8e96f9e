// What does the camera service spend on a frame of a 720p MJPG camera of quality 85? The floor is
// the camera alone: a video file that is read at its rate.
//   bench_pass_through --table [CAMERA-SERVICE]
// prints what several policies cost and how many bytes each sends.
#include <gst/gst.h>

#include <atomic>
#include <cstdio>
#include <ctime>

#include "capture/encoder.h"
#include "feeds/movie.h"
#include "harness/rows.h"
#include "sources/file_probe.h"
#include "unit/camera-service/test_host.h"

namespace lumsar::bench {
namespace {

constexpr int kMeasured = 480;  // 16 s
constexpr int kSkipped = 60;

struct Figures {
  double processorTime = 0;  // ms a frame
  double size = 0;           // KB
  std::string treatment;
};

class Measurement : public test::ServiceTest {
 public:
  Measurement() {
    gst_init(nullptr, nullptr);
    makeMovie(dir.path(), kSkipped + kMeasured);
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
