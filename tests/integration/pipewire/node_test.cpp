// Cameras as nodes of PipeWire: when they come and go, and when the real camera runs.
#include <csignal>

#include "integration/pipewire/pipewire_fixture.h"
#include "support/wake_ups.h"

namespace lumsar::test {
namespace {

TEST_F(Pipewire, ACameraIsANodeWithItsNameUntilItIsRemoved) {
  shareCamera();
  const std::string nodes = stack->nodes();
  EXPECT_TRUE(has(nodes, R"(node.description = "Front")")) << nodes;
  EXPECT_TRUE(has(nodes, R"(media.class = "Video/Source")")) << nodes;
  EXPECT_TRUE(has(nodes, R"(media.role = "Camera")")) << nodes;
  EXPECT_TRUE(agent->says("camera \"Front\" is the PipeWire node lumsar.id-1"));
  EXPECT_TRUE(statusHas(R"("device":"lumsar.id-1")"));
  host.send(removed(1));
  EXPECT_TRUE(eventually([this] { return !stack->hasNode(kNode); })) << stack->nodes();
}

TEST_F(Pipewire, ACameraThatComesAgainHasItsNameAgain) {
  shareCamera();
  for (const char* name : {"Front door", "Back door"}) {
    shareCamera(announcedBody("id-1", name));
    const std::string description = std::string("node.description = \"") + name + '"';
    EXPECT_TRUE(eventually([&] { return has(stack->nodes(), description); })) << stack->nodes();
    EXPECT_EQ(occurrences(stack->nodes(), "lumsar.id-1"), 1);
  }
}

TEST_F(Pipewire, ACameraRunsOnlyWhileItHasAConsumerWhateverBecomesOfThat) {
  shareCamera();
  for (int i = 0; i < 2; ++i) {
    Process consumer = stack->consumer(kNode, {"!", "image/jpeg", "!", "fakesink"});
    ASSERT_TRUE(isStarted()) << consumer.output();
    send(blankJpeg());
    consumer.stop(SIGKILL);
    EXPECT_TRUE(isStopped());
  }
}

TEST_F(Pipewire, CamerasComeAgainWithPipewire) {
  shareCamera();
  ASSERT_TRUE(agent->says("connected to PipeWire"));
  stack->killPipewire();
  ASSERT_TRUE(agent->says("no connection to PipeWire: it has ended; waiting for it"));
  host.send(announce(2, "Back"));  // one that it does not know yet
  stack->startPipewire();
  ASSERT_TRUE(agent->says("connected to PipeWire", 2)) << agent->output();
  ASSERT_TRUE(eventually([this] { return stack->hasNode("lumsar.id-2"); }));
  EXPECT_TRUE(stack->hasNode(kNode));
  Process consumer = stack->consumer(kNode, {"!", "image/jpeg", "!", "fakesink"}, 5);
  ASSERT_TRUE(isStarted()) << consumer.output();
  EXPECT_TRUE(sendUntilEnded(consumer, [&] { send(blankJpeg()); })) << consumer.output();
  EXPECT_EQ(agent->countOf("no connection to PipeWire"), 1);
}

TEST_F(Pipewire, ANodeThatSomebodyRemovesComesAgain) {
  shareCamera();
  const std::string before = stack->nodes();
  EXPECT_EQ(Process({"pw-cli", "destroy", kNode}, stack->session()).wait(), 0);
  EXPECT_TRUE(agent->says("camera \"Front\": PipeWire does not serve it: "));
  EXPECT_TRUE(eventually([&] { return stack->hasNode(kNode) && stack->nodes() != before; }))
      << stack->nodes();
  EXPECT_TRUE(statusHas(R"("error":"")"));
}

TEST_F(Pipewire, ANodeComesAgainThoughPipewireEndsBeforeItIsOfferedAgain) {
  shareCamera();
  ASSERT_EQ(Process({"pw-cli", "destroy", kNode}, stack->session()).wait(), 0);
  ASSERT_TRUE(agent->says("camera \"Front\": PipeWire does not serve it: "));
  stack->killPipewire();
  stack->startPipewire();
  ASSERT_TRUE(agent->says("connected to PipeWire", 2)) << agent->output();
  EXPECT_TRUE(eventually([this] { return stack->hasNode(kNode); })) << stack->nodes();
}

TEST_F(Pipewire, ACameraIsSwitchedOffWhenPipewireIsKilled) {
  shareCamera();
  Process consumer = stack->consumer(kNode, {"!", "image/jpeg", "!", "fakesink"});
  ASSERT_TRUE(isStarted());
  stack->killPipewire();
  EXPECT_TRUE(isStopped());
}

TEST_F(Pipewire, AnotherSessionIsServedByItsSocket) {
  agent->stop(SIGTERM);
  const TemporaryDirectory elsewhere;
  startAgent({}, {{"XDG_RUNTIME_DIR", elsewhere.path()},
                  {"PIPEWIRE_REMOTE", stack->runtimeDirectory() + "/pipewire-0"}});
  shareCamera();
}

TEST_F(Pipewire, APipewireThatIsNotThereYetIsWaitedFor) {
  agent->stop(SIGTERM);
  stack->killPipewire();
  startAgent({});
  EXPECT_TRUE(agent->says("no connection to PipeWire: "));
  stack->startPipewire();
  shareCamera();
}

TEST_F(Pipewire, IsOneOutputBesideOthers) {
  agent->stop(SIGTERM);
  startAgent({"--save-mjpeg", folder / "saved", "--status-file", folder / "status.json"});
  shareCamera();
  ASSERT_TRUE(isStarted()) << "for the file";
  Process consumer = stack->consumer(kNode, {"!", "image/jpeg", "!", "fakesink"}, 5);
  ASSERT_TRUE(sendUntilEnded(consumer, [&] { send(blankJpeg()); })) << consumer.output();
  const std::size_t size = readFile(folder / "saved/Front-1.mjpeg").size();
  EXPECT_GE(size, 5000U);
  EXPECT_TRUE(sendUntil([&] { return readFile(folder / "saved/Front-1.mjpeg").size() > size; },
                        [&] { send(blankJpeg()); }))
      << "after the consumer, too";
}

TEST_F(Pipewire, WakesUpForNothingWhileNobodyConsumes) {
  agent->stop(SIGTERM);
  startAgent({});
  shareCamera();
  long fewest = 0;
  EXPECT_TRUE(becomesIdle(agent->id(), fewest)) << fewest;
}

TEST_F(Pipewire, EndsCleanlyWhileItIsConsumed) {
  shareCamera();
  Process consumer = stack->consumer(kNode, {"!", "image/jpeg", "!", "fakesink"});
  ASSERT_TRUE(isStarted());
  send(blankJpeg());
  EXPECT_EQ(agent->stop(SIGTERM), 0);
  EXPECT_TRUE(isStopped());
}

}  // namespace
}  // namespace lumsar::test
