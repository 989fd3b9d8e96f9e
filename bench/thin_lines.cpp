// What arrives over thin lines of a 720p camera, with and without following the line?
//   bench_thin_lines --table [PROGRAMS]
// prints it, with the programs of another directory if one is named. The line is simulated, as
// tests/support/slow_line.h says.
#include <gst/gst.h>

#include <cstdio>
#include <thread>

#include "base/latency.h"
#include "capture/encoder.h"
#include "feeds/movie.h"
#include "thin_line/thin_chain.h"

namespace lumsar::bench {
namespace {

using std::chrono::seconds;
using test::Arrival;

constexpr seconds kSettling{15};
constexpr seconds kMeasured{30};
constexpr seconds kCut{2};
constexpr seconds kAfterCut{10};
constexpr std::uint64_t kRecovered = 500'000;  // µs of latency, or less

struct Line {
  const char* name;
  test::LineQuality quality;
};

double percentile(std::vector<std::uint64_t> values, double part) {
  if (values.empty()) return 0;
  std::ranges::sort(values);
  const auto index = static_cast<std::size_t>(part * static_cast<double>(values.size() - 1));
  return static_cast<double>(values[index]) / 1e3;
}

void print(const std::string& name, const std::vector<Arrival>& arrivals,
           const std::string& recovery) {
  std::vector<std::uint64_t> latencies;
  std::uint64_t gap = 0;
  std::size_t bytes = 0;
  std::size_t keys = 0;
  for (std::size_t i = 0; i < arrivals.size(); ++i) {
    latencies.push_back(arrivals[i].latency());
    bytes += arrivals[i].size;
    if (arrivals[i].isKey()) ++keys;
    if (i > 0) gap = std::max(gap, arrivals[i].time - arrivals[i - 1].time);
  }
  const double time = std::chrono::duration<double>(kMeasured).count();
  const CameraFrame last = arrivals.empty() ? CameraFrame{} : arrivals.back().frame;
  std::printf("| %s | %.1f | %dx%d | %.0f | %.0f | %.0f | %s | %.0f | %zu |\n", name.c_str(),
              static_cast<double>(arrivals.size()) / time, int{last.width}, int{last.height},
              percentile(latencies, 0.5), percentile(latencies, 0.99),
              static_cast<double>(gap) / 1e3, recovery.c_str(),
              static_cast<double>(bytes) / 1e3 / time, keys);
  std::fflush(stdout);
}

// Seconds from the gap's end to the first frame that is not old.
std::string recovery(test::ThinChain& chain) {
  chain.cut(true);
  std::this_thread::sleep_for(kCut);
  const std::uint64_t end = cameraClock();
  chain.cut(false);
  chain.clear();
  std::this_thread::sleep_for(kAfterCut);
  for (const Arrival& arrival : chain.arrivals()) {
    if (arrival.captured > end && arrival.latency() < kRecovered) {
      return base::text("{:.1f}", static_cast<double>(arrival.time - end) / 1e6);
    }
  }
  return "over 10";
}

void measure(const std::string& bin, const std::string& movie, const Line& line,
             const char* encoding, bool follows) {
  test::ThinChain chain({bin, "file:" + movie, "file:movie.avi",
                         base::text(R"("cameraEncodeType":"{}","cameraEnableFRC":"{}")", encoding,
                                    follows ? "ON" : "OFF"),
                         line.quality});
  std::this_thread::sleep_for(kSettling);
  chain.clear();
  std::this_thread::sleep_for(kMeasured);
  const auto arrivals = chain.arrivals();
  const std::string name =
      base::text("{}, {}, {}", line.name, encoding, follows ? "now" : "not followed");
  print(name, arrivals, recovery(chain));
}

void printTable(const std::string& bin) {
  using namespace std::chrono_literals;
  gst_init(nullptr, nullptr);
  const test::TemporaryDirectory directory;
  const std::string movie = makeMovie(directory.path(), 300);
  const std::array lines = {
      Line{"2 Mbit/s, 50 ms, 1 % loss", {.bytesPerSecond = 250'000, .delay = 50ms, .losses = 0.01}},
      Line{"300 kbit/s, 50 ms", {.bytesPerSecond = 37'500, .delay = 50ms}}};
  std::puts(
      "| line | frames/s | size | median, ms | 99th, ms | longest gap, ms | recovery, s | "
      "KB/s | key frames |");
  std::puts("|---|---|---|---|---|---|---|---|---|");
  for (const Line& line : lines) {
    for (const char* encoding : {"MJPG", "H264"}) {
      if (encoding[0] == 'H' && !service::h264Available()) continue;
      for (const bool follows : {false, true}) measure(bin, movie, line, encoding, follows);
    }
  }
}

}  // namespace
}  // namespace lumsar::bench

int main(int argc, char** argv) try {
  if (argc < 2 || std::string(argv[1]) != "--table") {
    std::puts("bench_thin_lines --table [PROGRAMS]");
    return 0;
  }
  lumsar::bench::printTable(argc > 2 ? argv[2] : LUMSAR_BIN);
} catch (const std::exception& error) {
  std::fputs(error.what(), stderr);
  return 1;
}
