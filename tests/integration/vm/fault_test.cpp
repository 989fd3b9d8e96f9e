// The guest as the party that fails: at each stage of a session something happens to the whole VM.
// Nothing is done afterwards but to start what has ended, and to share a camera that is not shared.
#include <array>
#include <csignal>
#include <optional>
#include <thread>
#include <tuple>

#include "integration/vm/support/camera_vm.h"
#include "support/slow_line.h"

namespace lumsar::test {
namespace {

using namespace std::chrono_literals;

enum class Stage { Connecting, Listing, Sharing, Streaming, InAFrame, Unsharing, Leaving };
enum class Fault { Killed, Stopped, Restarted, ClockForward, ClockBack };

constexpr std::array kStages{Stage::Connecting, Stage::Listing,   Stage::Sharing, Stage::Streaming,
                             Stage::InAFrame,   Stage::Unsharing, Stage::Leaving};
constexpr std::array kFaults{Fault::Killed, Fault::Stopped, Fault::Restarted, Fault::ClockForward,
                             Fault::ClockBack};

std::string nameOf(const testing::TestParamInfo<std::tuple<Stage, Fault>>& info) {
  static constexpr std::array stages{"connecting", "listing",   "sharing", "streaming",
                                     "inAFrame",   "unsharing", "leaving"};
  static constexpr std::array faults{"killed", "stopped", "restarted", "clockForward", "clockBack"};
  const auto [stage, fault] = info.param;
  return std::string(stages[static_cast<std::size_t>(stage)]) + "_" +
         faults[static_cast<std::size_t>(fault)];
}

class GuestFaults : public CameraVm, public testing::WithParamInterface<std::tuple<Stage, Fault>> {
 protected:
  Stage stage() const { return std::get<Stage>(GetParam()); }
  Fault fault() const { return std::get<Fault>(GetParam()); }

  // Up to the middle of the stage: what it begins with is ordered and not waited for.
  void reach() {
    if (stage() == Stage::InAFrame) return holdInAFrame();
    ASSERT_TRUE(user().startService());
    guest().start("vm", "lumsar-agent --v4l2 --verbose");
    user().startHost(guest().address());
    if (stage() == Stage::Connecting) return;
    ASSERT_TRUE(user().host().expect("VM answered"));
    if (stage() == Stage::Listing) return user().host().write("list\n");
    if (stage() == Stage::Sharing) return user().host().write("share 0\n");
    ASSERT_TRUE(user().command("share 0"));
    ASSERT_TRUE(cameraIsThere());
    startReader();
    ASSERT_TRUE(reading());
    if (stage() == Stage::Unsharing) user().host().write("unshare-all\n");
    if (stage() == Stage::Leaving) user().host().write("quit\n");
  }

  // The line is so slow that nearly always a frame is on its way.
  void holdInAFrame() {
    const Path line = user().directory() / "line";
    m_slow.emplace(line.string(), guest().spiceSocket().string(), 500'000);
    share("1920x1080@30", "spice+unix://" + line.string());
    ignoreTheLine();
    startReader();
    ASSERT_TRUE(reading());
    ASSERT_TRUE(eventually([this] { return user().counter("dropped") > 0; }));
  }

  void disturb() {
    if (fault() == Fault::Killed) {
      guest().pullThePlug();
      ASSERT_TRUE(guest().boot());
    } else if (fault() == Fault::Restarted) {
      guest().run("touch /tmp/before");
      guest().order("reboot -f");
      ASSERT_TRUE(eventually([this] { return hasRestarted(); }, 90s));
    } else if (fault() == Fault::Stopped) {
      guest().qemu().signal(SIGSTOP);
      std::this_thread::sleep_for(5s);  // the fault itself
      guest().qemu().signal(SIGCONT);
    } else {
      const char* sign = fault() == Fault::ClockForward ? "+" : "-";
      guest().run(std::string("date -s @$(($(date +%s) ") + sign + " 3600))");
    }
    if (hasEnded()) guest().start("vm", "lumsar-agent --v4l2 --verbose");
  }
  bool hasRestarted() {
    return guest().awaitShell() && guest().run("test -e /tmp/before").status == 1;
  }
  bool hasEnded() const { return fault() == Fault::Killed || fault() == Fault::Restarted; }

  // Sharing may have been refused by a VM that had gone; that is the user's to repeat. What has
  // been shared and not taken back comes back by itself.
  void recover() {
    if (stage() == Stage::Unsharing) {
      EXPECT_TRUE(cameraIsGone());
    }
    if (stage() == Stage::Sharing) {
      ASSERT_TRUE(user().host().expect("share 0: "));
    }
    const bool comesBack = stage() == Stage::Streaming || stage() == Stage::InAFrame;
    if (!comesBack) {
      ASSERT_TRUE(eventually([this] { return user().command("share 0"); }));
    }
    ASSERT_TRUE(eventually([this] { return cameraIsThere(); })) << device();
    stopReader();
    expectPictures(3);
  }

  std::optional<SlowLine> m_slow;
};

TEST_P(GuestFaults, FramesComeAgainAndTheNextSessionWorks) {
  ASSERT_NO_FATAL_FAILURE(reach());
  ASSERT_NO_FATAL_FAILURE(disturb());
  if (stage() == Stage::Leaving) {
    EXPECT_EQ(user().host().wait(), 0);
  } else {
    ASSERT_NO_FATAL_FAILURE(recover());
    user().endHost();
  }
  user().startHost(guest().address());
  ASSERT_TRUE(user().host().expect("VM answered"));
  ASSERT_TRUE(user().command("share 0"));
  ASSERT_TRUE(cameraIsThere()) << device();
  expectPictures(3);
}

INSTANTIATE_TEST_SUITE_P(All, GuestFaults,
                         testing::Combine(testing::ValuesIn(kStages), testing::ValuesIn(kFaults)),
                         nameOf);

}  // namespace
}  // namespace lumsar::test
