// The whole way of a real camera between two real machines: a V4L2 device of the user's machine,
// with the service, the IPC library, the plug-in and lumsar-spice inside it, and a desktop VM with
// lumsar-agent, whose programs see it as a device of their own.
#include <gtest/gtest.h>

#include "integration/vm/support/guest.h"
#include "integration/vm/support/pictures.h"

namespace lumsar::test {
namespace {

using namespace std::chrono_literals;

class TwoMachines : public testing::Test {
 protected:
  void SetUp() override {
    m_port = freePort();
    GuestSetup desktop = GuestSetup::desktop();
    desktop.spicePort = m_port;
    m_desktop = std::make_unique<Guest>("desktop", testDirectory(), desktop);
    m_user = std::make_unique<Guest>("user", testDirectory(), GuestSetup::user());
    ASSERT_TRUE(m_desktop->boot());
    ASSERT_TRUE(m_user->boot());
    const auto network = m_user->run(
        "ip link set lo up && ip link set eth0 up && ip addr add 10.0.2.15/24 dev eth0");
    ASSERT_EQ(network.status, 0) << network.output;
  }

  void TearDown() override {
    if (!HasFailure()) return;
    for (Guest* guest : {m_user.get(), m_desktop.get()}) {
      std::printf("%s\n", guest->run("tail -n 40 /tmp/*.log; dmesg | tail -n 5").output.c_str());
    }
  }

  // There is no udevd in there; what it would note down of cameras is all that is missed.
  void noteCameras() {
    const auto noted = user().run(R"(mkdir -p /run/udev/data && touch /run/udev/control
      for device in /sys/class/video4linux/*; do
        printf 'I:1\nE:ID_V4L_VERSION=2\nE:ID_V4L_CAPABILITIES=:capture:\nV:1\n' \
          >/run/udev/data/c$(cat $device/dev)
      done)");
    ASSERT_EQ(noted.status, 0) << noted.output;
  }

  void startUserSide() {
    noteCameras();
    m_user->start("service", "lumsar-camera-service --ipc-channel /tmp/cameras --verbose");
    m_user->run(R"(echo '{"encode_type": "MJPG", "max_width": "320"}' >/tmp/config.json)");
    m_user->start("host",
                  "env LUMSAR_REAL_IPC=/lib/lumsar/libvdi_ipc.so LUMSAR_IPC_RECORD=/tmp/pictures "
                  "lumsar-spice spice://10.0.2.2:" +
                      std::to_string(m_port) +
                      " --ipc-channel /tmp/cameras --config /tmp/config.json"
                      " --plugin /lib/lumsar/liblumsar.so.1"
                      " --ipc-library /lib/lumsar/recorder/libvdi_ipc.so --timeout 60s"
                      " --exec list --exec 'share 0' --duration 600s");
  }

  Guest& user() { return *m_user; }
  Guest& desktop() { return *m_desktop; }

 private:
  int m_port = 0;
  std::unique_ptr<Guest> m_desktop;
  std::unique_ptr<Guest> m_user;
};

TEST_F(TwoMachines, CameraOfTheOneIsADeviceOfTheOther) {
  const auto camera = user().run("cat /sys/class/video4linux/*/name");
  ASSERT_NE(camera.output.find("vivid"), std::string::npos) << camera.output;
  desktop().start("vm", "lumsar-agent --v4l2 --verbose");
  startUserSide();
  ASSERT_TRUE(user().expectIn("host", "share 0: done (0)", 60s));
  EXPECT_TRUE(user().expectIn("host", "vivid"));
  std::string device;
  ASSERT_TRUE(eventually(
      [&] {
        device = desktop().run("guest_reader /dev/video20 0").output;
        return device.starts_with("capture device");
      },
      20s))
      << device;

  const auto read = desktop().run("guest_reader /dev/video20 10", 120s);
  ASSERT_EQ(read.status, 0) << read.output;
  const auto sent = user().run("cat /tmp/pictures");
  expectInOrder(pictureHashes(read.output), pictureHashes(sent.output));
}

}  // namespace
}  // namespace lumsar::test
