// The whole service: refusals stay in the camera list until the same command is carried out, so
// that a host sees in the list whether its last one was. The service is a process of its own.
#include "unit/camera-service/test_host.h"

namespace lumsar::test {
namespace {

class RefusalsTest : public ServiceTest {
 protected:
  QJsonArray refusals() { return host().list().value("refusals").toArray(); }
};

TEST_F(RefusalsTest, UnsharingForgetsWhatWasRefusedOfTheCamera) {
  start({"--camera", "test:A,320x240"});
  ASSERT_TRUE(host().awaitCamera("test:A"));
  host().share("test:A");
  host().command(IPC_MSG_SHARE, {{"command", "sharetcp"},
                                 {"deviceId", "test:A"},
                                 {"remoteIp", "127.0.0.1"},
                                 {"remotePort", "0"}});
  host().awaitChange("refused");
  EXPECT_EQ(refusals().size(), 1);
  host().unshare("test:A");
  EXPECT_EQ(refusals().size(), 0);
  host().unshare("test:A");
  EXPECT_EQ(refusals().size(), 1);
}

TEST_F(RefusalsTest, APolicyForgetsTheRefusedOne) {
  start({"--camera", "test:A,320x240"});
  host().send(IPC_MSG_POLICY, "nonsense");
  host().unshare("test:A");
  EXPECT_EQ(refusals().size(), 2);
  host().policy({{"cameraQuality", 70}});
  ASSERT_EQ(refusals().size(), 1);
  EXPECT_EQ(refusals().at(0).toObject().value("camera").toString(), "test:A");
}

}  // namespace
}  // namespace lumsar::test
