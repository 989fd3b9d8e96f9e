// Camera records in the guest agent, down to its outputs: an output is shown complete frames only,
// and files hold nothing else and lie nowhere but in their directory.
//
// Input: a byte for the outputs, then records, each with its length.
#include <filesystem>
#include <fstream>
#include <iterator>

#include "base/system/temporary_directory.h"
#include "fuzz/input.h"
#include "outputs/discard_output.h"
#include "outputs/save_output.h"
#include "protocol/jpeg_segments.h"
#include "session/camera_table.h"

namespace {

using namespace lumsar;
using namespace lumsar::agent;
using fuzz::Input;
using fuzz::require;
namespace fs = std::filesystem;

constexpr std::size_t kFrameBudget = 4096;
constexpr std::size_t kMostSaved = 3;  // cameras: each has a thread and a file

class StrictSink : public Sink {
 public:
  bool hasConsumer() const override { return !m_closed; }
  void deliver(FramePtr frame) override {
    require(!m_closed, "a removed camera shows no frames");
    require(bool{frame->share}, "a frame is counted");
    const bool isVideo = frame->format.encoding == kEncodingH264;
    require(isVideo || frame->format.encoding == kEncodingMjpg, "a known encoding");
    require(isVideo || protocol::isCompleteJpeg(frame->data), "a complete frame");
    m_newest = std::move(frame);  // as a slow consumer would
    ++m_report.delivered;
  }
  void close() override { m_closed = true; }
  bool closed() const override { return m_closed; }
  SinkReport report() const override { return m_report; }

 private:
  bool m_closed = false;
  SinkReport m_report;
  FramePtr m_newest;
};

class StrictOutput : public SinkFactory {
 public:
  std::unique_ptr<Sink> open(const protocol::Announcement& camera, int /*handle*/,
                             const std::string& label, std::function<void()> /*changed*/) override {
    require(!camera.name.empty(), "a camera has a name");
    require(label.find('/') == std::string::npos && label[0] != '.', "a label fit for files");
    return std::make_unique<StrictSink>();
  }
};

using Outputs = std::vector<std::unique_ptr<SinkFactory>>;

Outputs makeOutputs(bool save, SaveAs how, const std::string& directory) {
  Outputs outputs;
  outputs.push_back(std::make_unique<StrictOutput>());
  outputs.push_back(std::make_unique<DiscardOutput>());
  if (save) outputs.push_back(std::make_unique<SaveOutput>(directory, how));
  return outputs;
}

void checkSent(fuzz::Bytes message) {
  const RedirMsgHeader header = readHeader(message.data());
  require(header.type == MSG_DATA && header.length == message.size() - kHeaderSize, "a message");
  require(header.length >= sizeof(CameraDataHeader), "with a record");
}

std::vector<unsigned char> contentOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void checkFiles(const fs::path& directory) {
  for (const auto& entry : fs::directory_iterator(directory)) {
    require(entry.is_regular_file(), "only files are saved");
    const fs::path& path = entry.path();
    if (path.extension() == ".h264") continue;
    require(path.extension() == ".jpg" || path.extension() == ".mjpeg", "a known kind of file");
    require(protocol::isCompleteJpeg(contentOf(path)), "a file ends with a complete frame");
  }
}

void play(Input& input, Outputs outputs, std::size_t mostCameras) {
  Gallery gallery(
      std::move(outputs), [] {}, kFrameBudget);
  CameraTable cameras(gallery, checkSent);
  while (!input.empty() && cameras.announcements() < mostCameras) {
    cameras.takeRecord(input.piece());
    cameras.update(Clock::now());
    gallery.update();
  }
  std::vector<CameraStatus> status;
  cameras.appendStatus(status);
  require(status.size() == cameras.size() && cameras.size() <= 64, "cameras are bounded");
  cameras.dropAll("end", true);
  require(gallery.finish(std::chrono::seconds(20)), "every output finishes");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  Input input(data, size);
  const unsigned char outputs = input.byte();
  const bool save = outputs % 8 == 7;
  const SaveAs how = outputs >= 128 ? SaveAs::Images : SaveAs::VideoFile;
  static const base::TemporaryDirectory parent;
  const fs::path directory = parent / "frames";
  play(input, makeOutputs(save, how, directory), save ? kMostSaved : 1000);
  if (!save) return 0;
  checkFiles(directory);
  fs::remove_all(directory);
  require(fs::is_empty(parent.path()), "nothing is written elsewhere");
  return 0;
}
