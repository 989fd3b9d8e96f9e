// ViewerHost: what is remembered of a VM and shared with it again.
#include "unit/viewer/viewer_host_fixture.h"

namespace lumsar::test {
namespace {

TEST_F(ViewerHostTest, RemembersWhatIsSharedFromThenOn) {
  start();
  ASSERT_TRUE(showsBoth());
  host->control().setRemembered(true);
  ASSERT_TRUE(shows([](const CameraModel& model) { return model.remembered; }));
  EXPECT_EQ(Choices(setup.choicesFile, "key").cameras(), Choices::Cameras{"b c"});
  host->control().setShared("a", true);
  host->control().setShared("b c", false);
  EXPECT_TRUE(eventually(
      [this] { return Choices(setup.choicesFile, "key").cameras() == Choices::Cameras{"a"}; }));
  host->control().setRemembered(false);
  ASSERT_TRUE(shows([](const CameraModel& model) { return !model.remembered; }));
  EXPECT_EQ(Choices(setup.choicesFile, "key").cameras(), std::nullopt);
}

TEST_F(ViewerHostTest, NothingIsRememberedWithoutAList) {
  ASSERT_TRUE(Choices(setup.choicesFile, "key").remember(Choices::Cameras{"a"}));
  fake.listStatus = STATUS_LIST_CALL_FAILED;
  start();
  ASSERT_TRUE(shows([](const CameraModel& model) { return model.remembered; }));
  const std::size_t before = told.count();
  host->control().setRemembered(true);
  ASSERT_TRUE(eventually([&] { return told.count() > before; }));
  EXPECT_EQ(Choices(setup.choicesFile, "key").cameras(), Choices::Cameras{"a"});
}

TEST_F(ViewerHostTest, AChoiceThatCannotBeSavedIsShown) {
  writeFile(directory.path() + "/file", "");
  setup.choicesFile = directory.path() + "/file/viewer.json";
  start();
  ASSERT_TRUE(showsBoth());
  EXPECT_TRUE(told.last().canRemember);
  host->control().setRemembered(true);
  ASSERT_TRUE(shows([](const CameraModel& model) { return model.notSaved; }));
  EXPECT_FALSE(told.last().remembered);
  EXPECT_TRUE(has(told.log(), "warning: cannot write")) << told.log();
}

TEST_F(ViewerHostTest, AVmThatCannotBeToldFromOthersIsNotRemembered) {
  setup.choicesKey = "";
  start();
  ASSERT_TRUE(showsBoth());
  EXPECT_FALSE(told.last().canRemember);
  const std::size_t before = told.count();
  host->control().setRemembered(true);
  ASSERT_TRUE(eventually([&] { return told.count() > before; }));
  EXPECT_FALSE(told.last().remembered);
}

TEST_F(ViewerHostTest, WhatIsRememberedIsSharedOnce) {
  ASSERT_TRUE(Choices(setup.choicesFile, "key").remember(Choices::Cameras{"a"}));
  start();
  ASSERT_TRUE(showsBoth());
  handshake();
  ASSERT_TRUE(shows([](const CameraModel& model) { return model.problem == Problem::None; }));
  handshake();
  ASSERT_TRUE(eventually([this] { return has(told.log(), "sharing a again: done"); }));
  EXPECT_EQ(commands(), (std::vector<std::string>{R"({"command":"share","deviceId":"a"})",
                                                  R"({"command":"share","deviceId":"a"})"}))
      << "the second one repeats it";
}

TEST_F(ViewerHostTest, WhatCouldNotBeSharedIsSharedAfterTheNextHandshake) {
  ASSERT_TRUE(Choices(setup.choicesFile, "key").remember(Choices::Cameras{"a"}));
  start();
  ASSERT_TRUE(showsBoth());
  set(fake.status, STATUS_NOT_CONNECTED);
  handshake();
  ASSERT_TRUE(
      shows([](const CameraModel& model) { return model.problem == Problem::ServiceSilent; }));
  set(fake.status, STATUS_OK);
  handshake();
  ASSERT_TRUE(shows([](const CameraModel& model) { return model.problem == Problem::None; }));
  const auto& all = commands();
  EXPECT_EQ(std::ranges::count(all, R"({"command":"share","deviceId":"a"})"), 2);
}

}  // namespace
}  // namespace lumsar::test
