// What does a frame of an MJPG video file cost in the camera service? The floor is a pipeline that
// reads the same file and passes its frames on as they are.
#include <gst/gst.h>
#include <unistd.h>

#include <regex>
#include <stdexcept>
#include <thread>

#include "harness/child.h"
#include "harness/rows.h"
#include "support/process.h"
#include "support/temporary_directory.h"

namespace lumsar::bench {
namespace {

using test::Process;
using Millis = std::chrono::duration<double, std::milli>;

constexpr int kRate = 30;
constexpr std::chrono::seconds kWindow{4};

// Plays a pipeline to its end.
void play(const std::string& description) {
  gst_init(nullptr, nullptr);
  GstElement* pipeline = gst_parse_launch(description.c_str(), nullptr);
  if (pipeline == nullptr) throw std::runtime_error("cannot make " + description);
  gst_element_set_state(pipeline, GST_STATE_PLAYING);
  gst_message_unref(
      gst_bus_timed_pop_filtered(gst_element_get_bus(pipeline), GST_CLOCK_TIME_NONE,
                                 static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR)));
  gst_element_set_state(pipeline, GST_STATE_NULL);
}

// Ten seconds, at the quality that the default policy asks for.
class VideoFile {
 public:
  VideoFile() {
    Child([this] {
      play(
          "videotestsrc num-buffers=300 ! video/x-raw,format=I420,width=1280,height=720,"
          "framerate=30/1 ! jpegenc quality=50 ! avimux ! filesink location=" +
          path());
    }).wait();
  }
  std::string path() const { return m_directory / "video.avi"; }

 private:
  const test::TemporaryDirectory m_directory;
};

double passed(const VideoFile& file) {
  const Child player([&] {
    play("filesrc location=" + file.path() + " ! avidemux ! image/jpeg ! fakesink sync=true");
  });
  std::this_thread::sleep_for(std::chrono::seconds(1));
  const Nanoseconds before = player.used();
  std::this_thread::sleep_for(kWindow);
  return Millis(player.used() - before).count() / static_cast<double>(kRate * kWindow.count());
}

class Streaming {
 public:
  explicit Streaming(const VideoFile& file)
      : m_service({LUMSAR_BIN "/lumsar-camera-service", "--camera", "file:" + file.path()},
                  setup()),
        m_agent({LUMSAR_BIN "/lumsar-agent", "--listen", socket(), "--discard"}),
        m_host(
            {LUMSAR_BIN "/lumsar-host", "--vm", socket(), "--exec", "share 0", "--duration", "1h"},
            setup()) {
    if (!m_agent.says("starting it")) {
      throw std::runtime_error(m_service.output() + m_host.output() + m_agent.output());
    }
  }
  Nanoseconds used() const { return processorTime(m_service.id()); }
  int frames() const {
    Process status({LUMSAR_BIN "/lumsar-camera-service", "--status", "--json"}, setup());
    status.wait();
    std::smatch found;
    const std::regex frames("\"frames\": *([0-9]+)");
    if (!std::regex_search(status.output(), found, frames)) {
      throw std::runtime_error("the status lacks frames:\n" + status.output());
    }
    return std::stoi(found[1]);
  }

 private:
  std::string socket() const { return "unix:" + m_directory / "vm.sock"; }
  test::ProcessSetup setup() const {
    return {.environment = {{"XDG_RUNTIME_DIR", m_directory.path()},
                            {"GST_REGISTRY", LUMSAR_GST_REGISTRY}}};
  }

  const test::TemporaryDirectory m_directory;
  Process m_service;
  Process m_agent;
  Process m_host;
};

double served(const VideoFile& file) {
  const Streaming streaming(file);
  if (!test::eventually([&] { return streaming.frames() >= kRate; })) {
    throw std::runtime_error("the frames do not flow");
  }
  const Nanoseconds before = streaming.used();
  const int frames = streaming.frames();
  std::this_thread::sleep_for(kWindow);
  const Nanoseconds used = streaming.used() - before;
  return Millis(used).count() / (streaming.frames() - frames);
}

std::vector<Row> rows(const VideoFile& file) {
  return {{"service: MJPG video file, 720p, frame", "ms CPU", [&] { return passed(file); },
           [&] { return served(file); }, 1.5, 5}};
}

}  // namespace
}  // namespace lumsar::bench

int main(int argc, char** argv) {
  const lumsar::bench::VideoFile file;
  return lumsar::bench::runRows(argc, argv, lumsar::bench::rows(file));
}
