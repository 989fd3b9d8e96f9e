// The whole service: what lumsar-cameras shares and unshares on a host's behalf, under the rules of
// that host, and how the host learns of it.
#include "unit/camera-service/test_host.h"

namespace lumsar::test {
namespace {

class ControlTest : public ServiceTest {
 protected:
  void SetUp() override {
    start({"--camera", "test:A,320x240", "--camera", "test:B,320x240", "--deny", "B@vm-7"});
    tool = newHost("lumsar --status");
    ASSERT_TRUE(host().awaitCamera("test:A"));
  }
  QJsonObject control(const QString& command, const QString& camera) {
    return tool->control(
        {{"command", command}, {"deviceId", camera}, {"client", numberOf(host().vmId())}});
  }
  qint64 numberOf(const std::string& vmId) {
    const QJsonArray hosts = tool->status().value("hosts").toArray();
    for (const auto& one : hosts) {
      if (one.toObject().value("vmId").toString().toStdString() != vmId) continue;
      return one.toObject().value("client").toInt();
    }
    return -1;
  }
  QJsonArray controls() { return host().list().value("controls").toArray(); }

  std::unique_ptr<TestHost> tool;
};

TEST_F(ControlTest, SharesForAHostThatFindsItInItsList) {
  const QJsonObject done = control("share", "A");
  EXPECT_EQ(done, (QJsonObject{{"change", "shared"},
                               {"camera", "test:A"},
                               {"name", "A"},
                               {"number", done.value("number")},
                               {"vmId", "vm-7"},
                               {"reason", "shared by lumsar-cameras"}}));
  EXPECT_EQ(host().awaitChange("shared"), done);
  EXPECT_EQ(host().records.await(CameraDataKind::Announced).id, "test:A");
  EXPECT_EQ(controls(), (QJsonArray{QJsonObject{{"camera", "test:A"}, {"shared", true}}}));
}

TEST_F(ControlTest, UnsharesWhatTheHostHasShared) {
  host().share("test:A");
  host().records.await(CameraDataKind::Announced);
  EXPECT_EQ(control("unshare", "test:A").value("change"), "unshared");
  host().records.await(CameraDataKind::Removed);
  EXPECT_EQ(controls(), (QJsonArray{QJsonObject{{"camera", "test:A"}, {"shared", false}}}));
}

TEST_F(ControlTest, AllForgetsTheOnesBefore) {
  control("share", "A");
  const QJsonObject done = control("unshareall", "");
  EXPECT_EQ(done.value("change"), "unshared");
  EXPECT_FALSE(done.contains("camera"));
  host().records.await(CameraDataKind::Removed);
  EXPECT_EQ(controls(), (QJsonArray{QJsonObject{{"camera", ""}, {"shared", false}}}));
}

TEST_F(ControlTest, TheHostsOwnCommandTakesItsPlace) {
  control("share", "A");
  host().unshare("test:A");
  EXPECT_EQ(controls(), QJsonArray{});
  control("share", "A");
  host().command(IPC_MSG_UNSHARE_ALL, {{"command", "unshareall"}});
  EXPECT_EQ(controls(), QJsonArray{});
}

// What a host has not asked for is not refused to it.
TEST_F(ControlTest, TheRulesOfTheHostHold) {
  EXPECT_EQ(control("share", "test:B").value("change"), "refused");
  EXPECT_EQ(control("unshare", "test:A").value("reason"),
            "it is not shared, so it cannot be unshared");
  EXPECT_EQ(controls(), QJsonArray{});
  EXPECT_EQ(host().list().value("refusals").toArray().size(), 0);
  EXPECT_TRUE(host().changes().empty());
}

TEST_F(ControlTest, ACameraThatIsNotThereIsAwaited) {
  EXPECT_EQ(control("share", "Later").value("change"), "waiting");
  EXPECT_EQ(controls(), (QJsonArray{QJsonObject{{"camera", "Later"}, {"shared", true}}}));
}

TEST_F(ControlTest, OtherHostsKeepTheirs) {
  const auto other = newHost("vm-8");
  other->share("test:A");
  other->records.await(CameraDataKind::Announced);
  control("share", "A");
  control("unshareall", "");
  host().records.await(CameraDataKind::Removed);
  EXPECT_EQ(other->records.count(CameraDataKind::Removed), 0U);
  EXPECT_EQ(TestHost::camera(tool->status(), "test:A").value("sharedWith"), QJsonArray{"vm-8"});
}

TEST_F(ControlTest, BadCommandsAreRefused) {
  EXPECT_EQ(tool->control({{"command", "share"}}).value("reason"), "this host is not connected");
  EXPECT_EQ(tool->control({{"client", 99}}).value("reason"), "this host is not connected");
  EXPECT_EQ(control("setpolicy", "A").value("reason"),
            "the command is not share, unshare or unshareall");
  EXPECT_EQ(control("share", "").value("reason"),
            "the command lacks a deviceId; take one from the camera list");
  EXPECT_EQ(control("share", QString(2U << 20U, 'x')).value("reason"), "the command is too long");
}

}  // namespace
}  // namespace lumsar::test
