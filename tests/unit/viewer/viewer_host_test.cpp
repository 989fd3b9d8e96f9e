// ViewerHost: what the window asks for and what it is told.
#include "unit/viewer/viewer_host_fixture.h"

namespace lumsar::test {
namespace {

TEST_F(ViewerHostTest, ShowsTheCameras) {
  start();
  ASSERT_TRUE(showsBoth());
  EXPECT_EQ(told.last().shared(), std::vector<std::string>{"b c"});
}

TEST_F(ViewerHostTest, AnIdMayBeAnyText) {
  start();
  ASSERT_TRUE(showsBoth());
  const std::size_t before = told.count();
  host->control().setShared("b c", false);
  ASSERT_TRUE(eventually([&] { return told.count() > before; }));
  EXPECT_EQ(commands(), std::vector<std::string>{R"({"command":"unshare","deviceId":"b c"})"});
}

// A switch that a person has moved goes back when the camera is not shared.
TEST_F(ViewerHostTest, WhatWasAskedForIsAnsweredEvenIfNothingChanges) {
  start();
  ASSERT_TRUE(showsBoth());
  const std::size_t before = told.count();
  host->control().setShared("a", true);
  EXPECT_TRUE(eventually([&] { return told.count() > before; }));
  EXPECT_FALSE(told.last().cameras.at(0).shared);
}

constexpr const char* kEveryState =
    R"({"cameras":[{"id":"off","name":""},{"id":"on","name":"","sharedHere":true},)"
    R"({"id":"used","name":"","sharedHere":true,"inUseHere":true},)"
    R"({"id":"away","name":"","sharedHere":true,"present":false},)"
    R"({"id":"elsewhere","name":"","present":false},{"id":"denied","name":""}],)"
    R"("refusals":[{"change":"refused","camera":"denied","name":"","reason":"no"}]})";

TEST_F(ViewerHostTest, AllAreThoseThatAreThereAndOff) {
  fake.list = kEveryState;
  start();
  ASSERT_TRUE(shows([](const CameraModel& model) { return model.cameras.size() == 6; }));
  const std::size_t before = told.count();
  host->control().setAllShared(true);
  ASSERT_TRUE(eventually([&] { return told.count() > before; }));
  EXPECT_EQ(commands(), std::vector<std::string>{R"({"command":"share","deviceId":"off"})"});
}

TEST_F(ViewerHostTest, NoneAreAllThatAreShared) {
  fake.list = kEveryState;
  start();
  ASSERT_TRUE(shows([](const CameraModel& model) { return model.cameras.size() == 6; }));
  const std::size_t before = told.count();
  host->control().setAllShared(false);
  ASSERT_TRUE(eventually([&] { return told.count() >= before + 3; }));
  EXPECT_EQ(commands(), (std::vector<std::string>{R"({"command":"unshare","deviceId":"on"})",
                                                  R"({"command":"unshare","deviceId":"used"})",
                                                  R"({"command":"unshare","deviceId":"away"})"}));
}

// A camera may still be on.
TEST_F(ViewerHostTest, TheLastListHoldsWhileTheServiceDoesNotAnswer) {
  start();
  ASSERT_TRUE(showsBoth());
  const std::vector<CameraRow> rows = told.last().cameras;
  set(fake.listStatus, STATUS_LIST_CALL_FAILED);
  EXPECT_TRUE(
      shows([](const CameraModel& model) { return model.problem == Problem::ServiceSilent; }));
  EXPECT_EQ(told.last().cameras, rows);
  EXPECT_TRUE(told.last().isListed);
  set(fake.listStatus, STATUS_OK);
  EXPECT_TRUE(
      shows([](const CameraModel& model) { return model.problem != Problem::ServiceSilent; }));
}

TEST_F(ViewerHostTest, AServiceThatHasNeverAnsweredHasNoList) {
  fake.listStatus = STATUS_LIST_CALL_FAILED;
  start();
  ASSERT_TRUE(
      shows([](const CameraModel& model) { return model.problem == Problem::ServiceSilent; }));
  EXPECT_FALSE(told.last().isListed);
}

TEST_F(ViewerHostTest, AUseThatBeginsAndEndsBetweenTwoListsIsShown) {
  fake.list = R"({"cameras":[{"id":"a","name":"A","sharedHere":true,"framesHere":5}]})";
  start();
  ASSERT_TRUE(shows([](const CameraModel& model) { return model.cameras.size() == 1; }));
  EXPECT_FALSE(told.last().inUse());
  set(fake.frames, 7);
  EXPECT_TRUE(shows([](const CameraModel& model) { return model.inUse(); }));
  EXPECT_TRUE(shows([](const CameraModel& model) { return !model.inUse(); }));
}

// Each answer that does not come takes seconds, which the end of the program would wait for.
TEST_F(ViewerHostTest, AServiceThatDoesNotAnswerIsAskedOnceForAClick) {
  fake.list = R"({"cameras":[{"id":"a","name":"A"}]})";
  start();
  ASSERT_TRUE(shows([](const CameraModel& model) { return model.cameras.size() == 1; }));
  set(fake.listStatus, STATUS_LIST_CALL_FAILED);
  for (const bool shared : {true, false}) {
    const int lists = now(fake.lists);
    const std::size_t before = told.count();
    host->control().setShared("a", shared);
    ASSERT_TRUE(eventually([&] { return told.count() > before; }));
    // By the click, and by the first of the questions that follow until it answers.
    EXPECT_LE(now(fake.lists), lists + 2);
    set(fake.listStatus, STATUS_OK);
    ASSERT_TRUE(
        shows([](const CameraModel& model) { return model.problem != Problem::ServiceSilent; }));
    set(fake.listStatus, STATUS_LIST_CALL_FAILED);
  }
}

// Nobody asks while nothing is shared and the window is closed.
TEST_F(ViewerHostTest, AChangeThatTheServiceTellsOfIsShown) {
  fake.list = R"({"cameras":[{"id":"a","name":"A"}]})";
  start();
  ASSERT_TRUE(shows([](const CameraModel& model) { return model.cameras.size() == 1; }));
  const int lists = now(fake.lists);
  std::string change = R"({"change":"added","camera":"b"})";
  fake.event(REDIR_EVENT_DEVICE_CHANGE, change.data(), static_cast<int>(change.size()));
  EXPECT_TRUE(eventually([&] { return now(fake.lists) > lists; }));
}

// The box goes back.
TEST_F(ViewerHostTest, AMissingPlugInIsSaidAndEndsNothingElse) {
  setup.plugin = "/nowhere/liblumsar.so.1";
  start();
  ASSERT_TRUE(eventually([this] { return told.ended.load(); }));
  EXPECT_EQ(told.last().problem, Problem::CannotStart);
  EXPECT_TRUE(has(told.log(), "no cameras: ")) << told.log();
  EXPECT_TRUE(has(told.log(), "/nowhere/liblumsar.so.1")) << told.log();
}

// With advice that a viewer can follow.
TEST_F(ViewerHostTest, AMissingIpcLibraryIsSaid) {
  setup.driver.ipcLibrary = "/nowhere/libvdi_ipc.so";
  start();
  ASSERT_TRUE(eventually([this] { return told.ended.load(); }));
  EXPECT_EQ(told.last().problem, Problem::CannotStart);
  EXPECT_TRUE(has(told.log(),
                  "cannot find the IPC library /nowhere/libvdi_ipc.so; name it with "
                  "LUMSAR_IPC_LIBRARY"))
      << told.log();
}

// The port's transport uses what this thread owns until it is told to stop.
TEST_F(ViewerHostTest, AFailureOfItsOwnThreadIsSaidAndLeavesTheHostWhereItIs) {
  start();
  ASSERT_TRUE(showsBoth());
  told.throws = true;
  host->control().setShared("a", true);
  EXPECT_TRUE(shows([](const CameraModel& model) { return model.problem == Problem::Failure; }));
  EXPECT_TRUE(has(told.log(), "no more cameras: out of luck")) << told.log();
  EXPECT_FALSE(told.ended);
  host->control().setShared("a", false);
  host->stop();
  EXPECT_TRUE(eventually([this] { return told.ended.load(); }));
  EXPECT_EQ(told.last().problem, Problem::Failure);
}

TEST_F(ViewerHostTest, AFailureOfThePlugInIsSaid) {
  fake.throws = true;
  start();
  EXPECT_TRUE(shows([](const CameraModel& model) { return model.problem == Problem::Failure; }));
}

TEST_F(ViewerHostTest, EndsWhenToldTo) {
  start();
  host->stop();
  host->stop();
  EXPECT_TRUE(eventually([this] { return told.ended.load(); }));
}

}  // namespace
}  // namespace lumsar::test
