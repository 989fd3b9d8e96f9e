// The beginning of a session between a real guest and lumsar-spice, with a guest agent that does as
// it is told: what is said, and what becomes of those who say it wrong.
#include <algorithm>
#include <csignal>

#include "integration/vm/support/spice_vm.h"

namespace lumsar::test {
namespace {

using namespace std::chrono_literals;

class Handshake : public SpiceVm {
 protected:
  void SetUp() override {
    SpiceVm::SetUp();
    ASSERT_TRUE(user().startService());
  }

  void meet(const std::string& steps) {
    user().startHost(guest().address());
    ASSERT_TRUE(user().host().expect("connected to the camera service"));
    agent(steps);
  }
};

TEST_F(Handshake, HelloArrivesWithTheRightBytes) {
  meet("hello answer sleep:600000");
  ASSERT_TRUE(agentSays("hello "));
  const std::string line = guest().run("grep hello /tmp/agent.log").output;
  EXPECT_EQ(line.substr(0, 70),
            "hello 4d414356"  // magic
            "00000000"        // HELLO
            "04000000"        // bytes of payload
            "00000000"
            "01010000"  // client 1.1, VM unknown
            "03000000"  // capabilities
            "0000000000000000");
  EXPECT_EQ(line.substr(74), "0000\n");
  EXPECT_TRUE(user().host().expect("VM answered, version 1.1"));
  EXPECT_TRUE(user().host().expect("ready to share cameras"));
}

TEST_F(Handshake, EachOpeningOfThePortIsGreeted) {
  meet("hello answer close sleep:300 open serve");
  EXPECT_TRUE(user().host().expect("VM answered, version 1.1"));
  EXPECT_TRUE(user().host().expect("no program in the VM has the port open"));
  EXPECT_TRUE(user().host().expect("VM answered, version 1.1"));
}

TEST_F(Handshake, GarbageInsteadOfAnAnswer) {
  meet("hello sleep:500 random:1000000:60 sleep:600000");
  ASSERT_TRUE(agentSays("hello "));
  const long before = user().host().ownMemory();
  EXPECT_TRUE(user().host().expect("bytes that are not a message; dropped"));
  EXPECT_TRUE(eventually([this] { return user().counter("strayBytes") > 59'900'000; }));
  EXPECT_LT(user().host().ownMemory() - before, 20 * 1024);
  EXPECT_FALSE(user().host().hasNext("VM answered"));
  EXPECT_TRUE(nextSessionWorks());
}

TEST_F(Handshake, GarbageBeforeTheAnswerIsSkipped) {
  meet("hello random:5000:1 answer sleep:600000");
  EXPECT_TRUE(user().host().expect("bytes that are not a message; dropped"));
  EXPECT_TRUE(user().host().expect("VM answered, version 1.1"));
}

// A guest agent that has heard nothing for a while.
TEST_F(Handshake, KnockIsNoTrouble) {
  meet(
      "hex:4d41435601000000100000000000000000000000000000000000000000000000"
      "08000000000000000000000000000000 hello answer sleep:600000");
  EXPECT_TRUE(user().host().expect("VM answered, version 1.1"));
  EXPECT_EQ(user().host().output().find("not a message"), std::string::npos);
}

TEST_F(Handshake, WrongToken) {
  meet("hello wrong sleep:600000");
  EXPECT_TRUE(user().host().expect("plug-in warning: [Handler][1392] Token is dismatch!"));
  EXPECT_TRUE(user().host().expect("the VM answered an older HELLO: token "));
  EXPECT_FALSE(user().host().hasNext("ready to share cameras"));
  EXPECT_TRUE(nextSessionWorks());
}

TEST_F(Handshake, AnswerThatIsRepeatedCountsOnce) {
  meet("hello answers:50000 sleep:600000");
  ASSERT_TRUE(user().host().expect("ready to share cameras"));
  EXPECT_TRUE(eventually([this] { return user().counter("bytesFromVm") == 50000 * 36; }));
  EXPECT_EQ(user().counter("handshakes"), 1);
  EXPECT_FALSE(user().host().hasNext("ready to share cameras"));
}

// What lumsar-agent says to an RDP host would make the plug-in begin a conversation of that kind.
TEST_F(Handshake, SideThatTakesThisForAnRdpChannel) {
  meet(
      "hex:4d41435603000000000000000000000000000000000000000000000000000000"
      " hello answer sleep:600000");
  EXPECT_TRUE(user().host().expect("run lumsar-agent without --protocol rdp"));
  EXPECT_TRUE(user().host().expect("ready to share cameras"));
}

TEST_F(Handshake, OlderVersionOfTheVm) {
  meet("hello answer:0.9 sleep:600000");
  EXPECT_TRUE(user().host().expect("VM answered, version 0.9"));
  EXPECT_TRUE(nextSessionWorks());
}

TEST_F(Handshake, MessageCutInHalfByAClosedPort) {
  meet("hello answer data:100000:5000 close sleep:300 open serve");
  EXPECT_TRUE(user().host().expect("VM answered, version 1.1"));
  EXPECT_TRUE(user().host().expect("VM answered, version 1.1"));
}

TEST_F(Handshake, TwoGigabytesAnnounced) {
  meet("hello answer sleep:500 data:2147483647:60000000 wrong sleep:600000");
  ASSERT_TRUE(user().host().expect("VM answered, version 1.1"));
  const long before = user().host().ownMemory();
  EXPECT_TRUE(user().host().expect("bytes that are not a message; dropped"));
  EXPECT_TRUE(user().host().expect("answered an older HELLO")) << "in the same session";
  EXPECT_LT(user().host().ownMemory() - before, 20 * 1024);
  EXPECT_TRUE(nextSessionWorks());
}

// The service is stalled: the guest has to wait, and what it sends must not pile up here.
TEST_F(Handshake, FloodFromTheGuestWhileTheServiceStalls) {
  std::string flood = "hello answer sleep:500";
  for (int i = 0; i < 80; ++i) flood += " data:1000000:1000000";
  meet(flood);
  ASSERT_TRUE(user().host().expect("ready to share cameras"));
  user().service().signal(SIGSTOP);
  const long before = user().host().ownMemory();
  long most = 0;
  eventually(
      [&] {
        most = std::max(most, user().host().ownMemory());
        return false;
      },
      3s);
  // Inbox::kMaxBytes, a message in the assembler, and what the libraries hold.
  EXPECT_LT(most - before, 32 * 1024);
  user().service().signal(SIGCONT);
  EXPECT_TRUE(nextSessionWorks());
}

// A client that does not read makes the emulator keep what the guest agent has sent, also beyond
// the agent's end.
class LeftOvers : public Handshake {
 protected:
  void SetUp() override {
    Handshake::SetUp();
    std::string flood = "hello answer sleep:500";
    for (int i = 0; i < 20; ++i) flood += " data:1000000:1000000";
    meet(flood);
    ASSERT_TRUE(user().host().expect("ready to share cameras"));
    user().host().signal(SIGSTOP);
    guest().run("sleep 1; killall -KILL guest_agent");
  }
};

// They come when the port is closed already, and open nothing.
TEST_F(LeftOvers, AtAClosedPort) {
  user().host().signal(SIGCONT);
  EXPECT_TRUE(user().host().expect("channel to the VM is closed"));
  guest().run("sleep 1");
  EXPECT_FALSE(user().host().hasNext("channel to the VM is open"));
  EXPECT_TRUE(nextSessionWorks());
}

TEST_F(LeftOvers, BehindTheNextOpening) {
  agent("serve");
  guest().run("sleep 0.5");
  user().host().signal(SIGCONT);
  EXPECT_TRUE(user().host().expect("channel to the VM is closed"));
  EXPECT_TRUE(user().host().expect("channel to the VM is open"));
  EXPECT_TRUE(user().host().expect("bytes that are not a message; dropped"));
  EXPECT_TRUE(user().host().expect("VM answered, version 1.1"));
}

TEST_F(Handshake, TailOfAnOldMessageBeforeTheAnswer) {
  meet("hello data:100000:20000 answer sleep:600000");
  EXPECT_TRUE(user().host().expect("bytes that are not a message; dropped"));
  EXPECT_TRUE(user().host().expect("VM answered, version 1.1"));
}

TEST_F(Handshake, PortThatNeverOpens) {
  user().startHost(guest().address(), {"--exec", "share 0", "--timeout", "2s"});
  EXPECT_TRUE(user().host().expect("no channel to the VM: no program in the VM has the port open"));
  EXPECT_EQ(user().host().wait(), 1);
  EXPECT_TRUE(user().host().expect("no channel to the VM within 2000 ms"));
}

TEST_F(Handshake, PortThatTheVmDoesNotHave) {
  user().startHost(guest().address(), {"--port", "org.lumsar.camera.7"});
  EXPECT_TRUE(user().host().expect("the VM has no port named org.lumsar.camera.7"));
}

TEST_F(Handshake, AddressThatIsNone) {
  user().startHost("spice://127.0.0.1");
  EXPECT_EQ(user().host().wait(), 2);
  EXPECT_TRUE(user().host().expect(
      "\"spice://127.0.0.1\" is not a valid address; expected spice://HOST:PORT"));
}

TEST_F(Handshake, ServerThatIsNotThere) {
  user().startHost("spice+unix:///nowhere");
  EXPECT_TRUE(user().host().expect("no channel to the VM: cannot connect to the server"));
}

}  // namespace
}  // namespace lumsar::test
