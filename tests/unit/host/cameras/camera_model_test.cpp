// CameraModel: what a person gets to see of a camera service's list.
#include "cameras/camera_model.h"

#include <gtest/gtest.h>

namespace lumsar::test {
namespace {

using namespace host;

Session::State session(bool answered = true) {
  Session::State state;
  state.initialised = state.channelOpen = true;
  state.answered = answered;
  return state;
}

CameraModel describe(const Session::State& state, const std::optional<CameraList>& list,
                     bool serviceAnswers = true, Protocol protocol = Protocol::Spice) {
  return describeCameras(state, list, serviceAnswers, protocol);
}

CameraModel modelOf(const std::string& list) {
  return describe(session(), readList(list));
}

CameraRow rowOf(const std::string& camera) {
  return modelOf(R"({"cameras":[)" + camera + "]}").cameras.at(0);
}

TEST(CameraModel, StatesOfACamera) {
  EXPECT_EQ(rowOf(R"({"id":"a","name":"A"})"), (CameraRow{"a", "A", CameraState::Off, false}));
  EXPECT_EQ(rowOf(R"({"id":"a","name":"A","sharedHere":true})"),
            (CameraRow{"a", "A", CameraState::On, true}));
  EXPECT_EQ(rowOf(R"({"id":"a","name":"A","sharedHere":true,"inUseHere":true})"),
            (CameraRow{"a", "A", CameraState::InUse, true}));
  EXPECT_EQ(rowOf(R"({"id":"a","name":"A","sharedHere":true,"present":false})"),
            (CameraRow{"a", "A", CameraState::Unplugged, true}));
}

// Even one of the same name.
TEST(CameraModel, WhatAnotherVmUsesIsNotInUseHere) {
  const CameraModel model =
      modelOf(R"({"cameras":[{"id":"a","name":"A","sharedWith":["vm"],"inUse":true,)"
              R"("sharedHere":false,"inUseHere":false},)"
              R"({"id":"b","name":"B","sharedWith":["vm","vm"],"inUse":true,)"
              R"("sharedHere":true,"inUseHere":false}]})");
  EXPECT_EQ(model.cameras.at(0).state, CameraState::Off);
  EXPECT_EQ(model.cameras.at(1).state, CameraState::On);
  EXPECT_FALSE(model.inUse());
  EXPECT_EQ(model.shared(), std::vector<std::string>{"b"});
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

TEST(CameraModel, NoListIsNotAnEmptyList) {
  EXPECT_FALSE(describe(session(), std::nullopt).isListed);
  EXPECT_TRUE(modelOf("{}").isListed);
  EXPECT_FALSE(describe({}, readList("{}")).isListed);
}

TEST(CameraModel, WhatIsMissing) {
  const auto problem = [](const Session::State& state, bool serviceAnswers = true) {
    return describe(state, readList("{}"), serviceAnswers).problem;
  };
  EXPECT_EQ(problem({}), Problem::NoService);
  Session::State closed = session();
  closed.channelOpen = false;
  EXPECT_EQ(problem(closed), Problem::PortClosed);
  EXPECT_EQ(problem(session(false)), Problem::NoAnswer);
  Session::State stray = session(false);
  stray.strayed = true;
  EXPECT_EQ(problem(stray), Problem::NotOurs);
  // Of a former program at the port.
  stray = session(false);
  stray.handshakes = stray.strayBytes = 5;
  EXPECT_EQ(problem(stray), Problem::NoAnswer);
  EXPECT_EQ(problem(session(), false), Problem::ServiceSilent);
  EXPECT_EQ(problem(session()), Problem::None);
}

// Its server may block the channel, and has no ports.
TEST(CameraModel, WhatIsWrongWithAnRdpConnection) {
  const auto problem = [](const Session::State& state) {
    return describe(state, readList("{}"), true, Protocol::Rdp).problem;
  };
  Session::State closed = session();
  closed.channelOpen = false;
  EXPECT_EQ(problem(closed), Problem::NoChannel);
  EXPECT_EQ(problem(session(false)), Problem::ChannelSilent);
  EXPECT_EQ(problem(session()), Problem::None);
}

}  // namespace
}  // namespace lumsar::test
