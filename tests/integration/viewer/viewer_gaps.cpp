// viewer_gaps: how long a viewer's main loop stands still at most, with the module and without it,
// whatever happens to the cameras. Prints a line of a table for each; run-vm-test runs it. Each is
// measured while the desktop changes.
#include <csignal>
#include <cstdlib>

#include "integration/viewer/desktop_viewer.h"
#include "support/slow_line.h"

namespace lumsar::test {
namespace {

using namespace std::chrono_literals;

constexpr auto kTime = 6s;

class ViewerGaps : public DesktopViewer {
 protected:
  void startMeasured(const std::string& address, bool withModule) {
    if (withModule) return start({"remote-viewer", address}, {{"GTK_MODULES", LUMSAR_LOOP_GAP}});
    startBare({"remote-viewer", address}, {{"GTK_MODULES", LUMSAR_LOOP_GAP}});
  }
  // Prints the longest times since it was last called.
  void print(const char* what) {
    const int before = viewer().countOf("longest turn ");
    viewer().signal(SIGUSR1);
    ASSERT_TRUE(viewer().says(" us of processor time", before + 1));
    const std::string& output = viewer().output();
    double real = 0;
    double processor = 0;
    static_cast<void>(std::sscanf(output.c_str() + output.rfind("longest turn "),
                                  "longest turn %lf us, %lf us", &real, &processor));
    if (what == nullptr) return;
    std::printf("| %s | %.1f | %.1f |\n", what, real / 1000, processor / 1000);
    std::fflush(stdout);
  }
  void measure(const char* what) {
    print(nullptr);
    const auto end = std::chrono::steady_clock::now() + kTime;
    for (int i = 0; std::chrono::steady_clock::now() < end; ++i) {
      guest().run(std::string("tr '\\0' ") + (i % 2 == 0 ? "w" : "p") +
                  " </dev/zero | dd of=/dev/mem bs=4096 seek=$((0xb8000 / 4096)) count=1");
    }
    print(what);
  }
  // Up to a camera that streams, at 1080p.
  void stream(const std::string& address) {
    ASSERT_TRUE(user().startService("1920x1080@30"));
    startGuestAgent();
    startMeasured(address, true);
    ASSERT_TRUE(viewer().says("VM answered"));
    m_desktop = screen().window("--class", "remote-viewer");
    openCameras();
    ASSERT_TRUE(share());
    ASSERT_TRUE(cameraIsThere());
    startReader();
    ASSERT_TRUE(reading());
  }
  // To the server and its guest, 500 kB a second.
  std::string slowAddress() {
    const Path line = user().directory() / "line";
    m_line.emplace(line.string(), guest().spiceSocket().string(), 500'000);
    return "spice+unix://" + line.string();
  }
  void TearDown() override {
    DesktopViewer::TearDown();
    m_line.reset();
  }

  std::optional<SlowLine> m_line;
};

TEST_F(ViewerGaps, WithoutTheModule) {
  startMeasured(guest().address(), false);
  m_desktop = screen().window("--class", "remote-viewer");
  print("without the module, from its start to the desktop");
  measure("without the module");
}

TEST_F(ViewerGaps, WithoutTheModuleOnASlowLine) {
  startMeasured(slowAddress(), false);
  m_desktop = screen().window("--class", "remote-viewer");
  measure("without the module, slow line");
}

TEST_F(ViewerGaps, Beginning) {
  ASSERT_TRUE(user().startService());
  startMeasured(guest().address(), true);
  m_desktop = screen().window("--class", "remote-viewer");
  print("with the module, from its start to the desktop");
  startGuestAgent();
  ASSERT_TRUE(viewer().says("VM answered"));
  print("with the module, until the guest has answered");
  measure("with the module, nothing shared");
}

TEST_F(ViewerGaps, Streaming) {
  stream(guest().address());
  measure("a camera of 1080p streams");
  user().service().signal(SIGSTOP);
  measure("the same, and the service hangs");
  user().service().signal(SIGCONT);
  ASSERT_TRUE(reading());
  guest().run("killall -STOP lumsar-agent");
  measure("the same, and the guest stalls");
  guest().run("killall -CONT lumsar-agent");
}

TEST_F(ViewerGaps, SlowLine) {
  stream(slowAddress());
  measure("the same, slow line");
}

TEST_F(ViewerGaps, Flood) {
  ASSERT_TRUE(user().startService());
  startMeasured(guest().address(), true);
  m_desktop = screen().window("--class", "remote-viewer");
  std::string steps = "hello answer";
  for (int i = 0; i < 400; ++i) steps += " data:1000000:10";
  agent(steps);
  ASSERT_TRUE(viewer().says("VM answered"));
  measure("the guest floods");
  user().service().signal(SIGSTOP);
  measure("the guest floods, and the service hangs");
  user().service().signal(SIGCONT);
}

}  // namespace
}  // namespace lumsar::test
