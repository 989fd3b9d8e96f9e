// CameraModel: what a person gets to see of a camera service's list.
#include "cameras/camera_model.h"

#include <gtest/gtest.h>

namespace lumsar::test {
namespace {

using namespace viewer;

host::Session::State session(std::uint64_t handshakes = 1) {
  return {.initialised = true, .channelOpen = true, .handshakes = handshakes};
}

CameraModel modelOf(const std::string& list) {
  return describeCameras(session(), host::readList(list), "vm");
}

CameraRow rowOf(const std::string& camera) {
  return modelOf(R"({"cameras":[)" + camera + "]}").cameras.at(0);
}

TEST(CameraModel, StatesOfACamera) {
  EXPECT_EQ(rowOf(R"({"id":"a","name":"A"})"), (CameraRow{"a", "A", CameraState::Off, false}));
  EXPECT_EQ(rowOf(R"({"id":"a","name":"A","sharedWith":["vm"]})"),
            (CameraRow{"a", "A", CameraState::On, true}));
  EXPECT_EQ(rowOf(R"({"id":"a","name":"A","sharedWith":["x","vm"],"inUse":true})"),
            (CameraRow{"a", "A", CameraState::InUse, true}));
  EXPECT_EQ(rowOf(R"({"id":"a","name":"A","sharedWith":["vm"],"present":false})"),
            (CameraRow{"a", "A", CameraState::Unplugged, true}));
}

TEST(CameraModel, WhatAnotherVmUsesIsNotInUseHere) {
  const CameraModel model =
      modelOf(R"({"cameras":[{"id":"a","name":"A","sharedWith":["x"],"inUse":true}]})");
  EXPECT_EQ(model.cameras.at(0).state, CameraState::Off);
  EXPECT_FALSE(model.inUse());
  EXPECT_TRUE(model.shared().empty());
}

TEST(CameraModel, ARefusalIsSaidOfItsCamera) {
  const CameraModel model =
      modelOf(R"({"cameras":[{"id":"a","name":"A"}],)"
              R"("refusals":[{"change":"refused","camera":"a","name":"A","reason":"busy"}]})");
  ASSERT_EQ(model.cameras.size(), 1U);
  EXPECT_EQ(model.cameras[0], (CameraRow{"a", "A", CameraState::Refused, false, "busy"}));
}

// The rules hide such a camera; who asked for it still gets to know why.
TEST(CameraModel, ARefusedCameraThatIsNotListedIsShown) {
  const CameraModel model =
      modelOf(R"({"cameras":[],"refusals":[{"change":"refused","camera":"a","reason":"denied"}]})");
  ASSERT_EQ(model.cameras.size(), 1U);
  EXPECT_EQ(model.cameras[0], (CameraRow{"a", "a", CameraState::Refused, false, "denied"}));
}

TEST(CameraModel, WhatIsWaitedForIsShownAsUnplugged) {
  const CameraModel model =
      modelOf(R"({"cameras":[],"refusals":[{"change":"waiting","camera":"a","state":true}]})");
  ASSERT_EQ(model.cameras.size(), 1U);
  EXPECT_EQ(model.cameras[0], (CameraRow{"a", "a", CameraState::Unplugged, true}));
}

TEST(CameraModel, NamesAreMadeHarmless) {
  EXPECT_EQ(rowOf(R"({"id":"a","name":"A\nB"})").name, "A?B");
}

TEST(CameraModel, WhatIsMissing) {
  const auto problem = [](const host::Session::State& state) {
    return describeCameras(state, host::readList("{}"), "vm").problem;
  };
  EXPECT_EQ(problem({}), Problem::NoService);
  EXPECT_EQ(problem({.initialised = true}), Problem::PortClosed);
  EXPECT_EQ(problem(session(0)), Problem::NoAnswer);
  host::Session::State stray = session(0);
  stray.strayBytes = 5;
  EXPECT_EQ(problem(stray), Problem::NotOurs);
  EXPECT_EQ(problem(session()), Problem::None);
}

}  // namespace
}  // namespace lumsar::test
