// The program lumsar-camera-service with few descriptors or little memory. It is a process of its
// own.
#include <sys/resource.h>

#include "support/raw_peer.h"
#include "unit/camera-service/test_host.h"

namespace lumsar::test {
namespace {

ProcessSetup limited(int resource, rlim_t limit) {
  return {.before = [=] {
    const rlimit both{limit, limit};
    ::setrlimit(static_cast<__rlimit_resource>(resource), &both);
  }};
}

class LimitsTest : public ServiceTest {
 protected:
  // Starts it with this limit, which is too low.
  void expectRefusal(int resource, rlim_t limit, const std::string& text) const {
    Process service({CAMERA_SERVICE, "--ipc-channel", channel, "--camera", "test:A"},
                    limited(resource, limit));
    EXPECT_EQ(service.wait(), 1) << limit;
    EXPECT_NE(service.output().find(text), std::string::npos) << service.output();
  }
};

TEST_F(LimitsTest, TooFewDescriptorsAreSaidAtItsStart) {
  for (const rlim_t few : {10U, 20U, 24U, 63U}) {
    expectRefusal(RLIMIT_NOFILE, few, "at least 64 open files");
  }
}

TEST_F(LimitsTest, TooLittleAddressSpaceIsSaidAtItsStart) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizer itself needs more";
#endif
  for (const rlim_t megabytes : {120U, 160U, 500U}) {
    expectRefusal(RLIMIT_AS, megabytes << 20U, "at least 512 MiB of address space");
  }
}

TEST_F(LimitsTest, ClientsLeaveDescriptorsToTheCameras) {
  start({"--camera", "test:A,320x240@30"}, limited(RLIMIT_NOFILE, 64));
  ASSERT_TRUE(host().awaitCamera("test:A"));
  std::vector<RawPeer> clients;
  for (int i = 0; i < 60; ++i) {
    clients.emplace_back(channel);
    clients.back().send(message(IPC_MSG_CONNECT_REQUEST, "idle"));
  }
  EXPECT_TRUE(m_service->says("a client was refused: too many files are open; at most 64 may be"));
  watch(host(), "test:A");
}

TEST_F(LimitsTest, ACameraThatLacksDescriptorsNamesTheCause) {
  std::vector<std::string> options;
  for (int i = 0; i < 40; ++i) {
    options.insert(options.end(), {"--camera", "test:" + std::to_string(i) + ",64x64@1"});
  }
  start(options, limited(RLIMIT_NOFILE, 64));
  ASSERT_TRUE(host().awaitCamera("test:39"));
  for (int i = 0; i < 40; ++i) {
    host().share("test:" + std::to_string(i));
    const Record announced =
        host().records.await(CameraDataKind::Announced, static_cast<std::size_t>(i) + 1);
    host().fromVm(CameraDataKind::Start, announced.camera);
  }
  const std::string reason = host().awaitChange("failed").value("reason").toString().toStdString();
  EXPECT_NE(reason.find("too many files are open; at most 64 may be"), std::string::npos) << reason;
}

}  // namespace
}  // namespace lumsar::test
