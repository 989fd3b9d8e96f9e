// DeviceTransport on a pseudo terminal, and the look-up of virtio ports.
#include "transport/device_transport.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>

#include "support/eventually.h"
#include "support/temporary_directory.h"

namespace lumsar::test {
namespace {

using namespace agent;

// The far end of a line; its near end is a device file.
class Line {
 public:
  Line() : m_master(posix_openpt(O_RDWR | O_NOCTTY)) {
    grantpt(m_master.get());
    unlockpt(m_master.get());
  }
  std::string path() const { return ptsname(m_master.get()); }
  void send(const std::string& text) {
    EXPECT_GT(write(m_master.get(), text.data(), text.size()), 0);
  }
  std::string receive() {
    std::array<char, 100> buffer;
    const ssize_t got = read(m_master.get(), buffer.data(), buffer.size());
    return {buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 0))};
  }
  void hangUp() { m_master.reset(); }

 private:
  base::UniqueFd m_master;
};

std::string readAll(DeviceTransport& device, std::size_t size) {
  std::string all;
  std::array<unsigned char, 64> buffer;
  eventually([&] {
    const ssize_t got = device.read(buffer);
    if (got > 0) all.append(buffer.begin(), buffer.begin() + got);
    return got < 0 || all.size() >= size;
  });
  return all;
}

TEST(DeviceTransport, CarriesBytesUnchanged) {
  Line line;
  DeviceTransport device([&] { return line.path(); }, "a line");
  EXPECT_EQ(device.descriptor(), -1);
  ASSERT_TRUE(device.attach());
  EXPECT_GE(device.descriptor(), 0);
  const std::string bytes("a\n\r\x03\x04\x11\xff\0b", 9);
  line.send(bytes);
  EXPECT_EQ(readAll(device, bytes.size()), bytes);
  const std::array<unsigned char, 3> answer{'x', '\n', 0};
  EXPECT_EQ(device.write(answer), 3);
  EXPECT_EQ(line.receive(), std::string("x\n\0", 3));
}

TEST(DeviceTransport, SeesTheOtherSideLeaveAndFindsItAgain) {
  auto line = std::make_unique<Line>();
  DeviceTransport device([&] { return line->path(); }, "a line");
  ASSERT_TRUE(device.attach());
  line->hangUp();
  std::array<unsigned char, 10> buffer;
  EXPECT_EQ(device.read(buffer), -1);
  EXPECT_FALSE(device.attached());
  line = std::make_unique<Line>();
  EXPECT_TRUE(eventually([&] { return device.attach(); }));
}

TEST(DeviceTransport, WaitsForADeviceThatIsNotThereYet) {
  std::optional<std::string> path;
  DeviceTransport device([&] { return path; }, "virtio port");
  EXPECT_FALSE(device.attach());
  path = "/dev/does-not-exist";
  EXPECT_FALSE(device.attach());
  Line line;
  path = line.path();
  EXPECT_TRUE(device.attach());
  device.detach();
  EXPECT_FALSE(device.attached());
  EXPECT_TRUE(device.attach());
}

TEST(FindVirtioPort, FindsAPortByItsName) {
  const TemporaryDirectory folder;
  for (const auto& [port, name] : {std::pair{"vport1p1", "com.redhat.spice.0\n"},
                                   std::pair{"vport1p2", "org.lumsar.camera.0\n"}}) {
    std::filesystem::create_directory(folder / port);
    writeFile(folder / (std::string(port) + "/name"), name);
  }
  EXPECT_EQ(findVirtioPort("org.lumsar.camera.0", folder.path(), "/dev"), "/dev/vport1p2");
  EXPECT_EQ(findVirtioPort("org.lumsar.camera", folder.path(), "/dev"), std::nullopt);
  EXPECT_EQ(findVirtioPort("org.lumsar.camera.0", folder / "missing", "/dev"), std::nullopt);
}

}  // namespace
}  // namespace lumsar::test
