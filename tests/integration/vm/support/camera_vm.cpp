#include "integration/vm/support/camera_vm.h"

#include "integration/vm/support/pictures.h"
#include "support/temporary_directory.h"

namespace lumsar::test {

using namespace std::chrono_literals;

void CameraVm::share(const std::string& format, const std::string& address) {
  ASSERT_TRUE(user().startService(format));
  user().startHost(address.empty() ? guest().address() : address);
  startAgent();
  ASSERT_TRUE(user().command("share 0"));
  ASSERT_TRUE(cameraIsThere()) << device();
}

void CameraVm::ignoreTheLine() {
  const std::string policy = user().directory() / "policy.json";
  writeFile(policy, R"({"policy":[{"cameraEnableFRC":"OFF"}]})");
  ASSERT_TRUE(user().command("policy " + policy));
}

void CameraVm::startAgent() {
  guest().start("vm", "lumsar-agent --v4l2 --verbose");
  ASSERT_TRUE(user().host().expect("VM answered"));
}

bool CameraVm::cameraIsThere() {
  return eventually([this] { return device().starts_with("capture device"); });
}

bool CameraVm::cameraIsGone() {
  stopReader();
  return eventually([this] { return device().starts_with("no capture device"); });
}

bool CameraVm::reading() {
  const auto seen = picturesRead();
  return eventually([&] { return picturesRead() > seen + 3; });
}

std::size_t CameraVm::picturesRead() {
  return pictureHashes(guest().run("cat /tmp/reader.log").output).size();
}

void CameraVm::expectPictures(std::size_t count) {
  const auto result =
      guest().run("guest_reader /dev/video20 " + std::to_string(count), milliseconds(40s));
  ASSERT_EQ(result.status, 0) << result.output;
  const auto read = pictureHashes(result.output);
  ASSERT_EQ(read.size(), count);
  expectInOrder(read, user().picturesSent());
}

}  // namespace lumsar::test
