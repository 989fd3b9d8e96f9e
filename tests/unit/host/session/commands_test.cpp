// The host's commands: which camera is meant, what is said, and what holds after a recovery.
#include "session/commands.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include "support/temporary_directory.h"
#include "support/text.h"
#include "unit/host/session/fake_plugin.h"

namespace lumsar::test {
namespace {

using namespace host;

constexpr const char* kTwoCameras = R"({"cameras":[{"id":"test:Front","name":"Front","number":4},)"
                                    R"({"id":"test:Back","name":"Back","number":9}]})";

FakePlugin& fakePlugin() {
  void* handle = dlopen(LUMSAR_FAKE_PLUGIN, RTLD_NOW);
  return *reinterpret_cast<FakePlugin* (*)()>(dlsym(handle, "fakePlugin"))();
}

constexpr const char* kWaitsForLate =
    R"({"cameras":[],"refusals":[{"change":"waiting","camera":"file:late.jpg","reason":""}]})";

std::string deviceCommand(const std::string& name, const std::string& id) {
  return R"({"command":")" + name + R"(","deviceId":")" + id + R"("})";
}

struct CommandsTest : testing::Test {
  CommandsTest() {
    fake = {};
    fake.list = kTwoCameras;
    report.setSink([this](const std::string& line) { said.push_back(line.substr(kTimeSize)); });
  }

  Commands::Result run(const std::string& line) {
    commands.run(line);
    while (commands.isConnecting()) commands.checkConnection();
    return commands.results().back();
  }
  // What the plug-in is told after a recovery.
  std::vector<std::string> again(bool sharesAll = false) {
    fake.commands.clear();
    commands.shareAgain(sharesAll);
    return fake.commands;
  }

  static constexpr std::size_t kTimeSize = 13;  // "12:34:56.789 "
  std::vector<std::string> said;
  FakePlugin& fake = fakePlugin();
  Plugin plugin{LUMSAR_FAKE_PLUGIN};
  Report report{true};
  Commands commands{plugin, report, [] { return std::string(); }, true};
};

TEST_F(CommandsTest, NumbersAndNamesBecomeIds) {
  run("share 1");
  run("share Front");
  EXPECT_EQ(fake.commands, (std::vector<std::string>{deviceCommand("share", "test:Back"),
                                                     deviceCommand("share", "test:Front")}));
}

TEST_F(CommandsTest, WhatWasTakenBackIsNotSharedAgainWhateverItWasCalled) {
  for (const char* shared : {"0", "Front", "test:Front"}) {
    for (const char* takenBack : {"0", "Front", "test:Front"}) {
      run(std::string("share ") + shared);
      EXPECT_EQ(again(), std::vector<std::string>{deviceCommand("share", "test:Front")});
      run(std::string("unshare ") + takenBack);
      EXPECT_EQ(again(), std::vector<std::string>{}) << shared << ", " << takenBack;
    }
  }
}

TEST_F(CommandsTest, ItIsForgottenEvenWhileTheServiceIsGone) {
  run("share Front");
  fake.status = STATUS_NOT_CONNECTED;
  EXPECT_EQ(run("unshare 0").status, STATUS_NOT_CONNECTED);
  EXPECT_EQ(again(), std::vector<std::string>{});
}

TEST_F(CommandsTest, ItIsForgottenByItsNameEvenWhenItIsNoLongerListed) {
  run("share Front");
  fake.list = R"({"cameras":[]})";
  run("unshare Front");
  EXPECT_EQ(again(), std::vector<std::string>{});
}

TEST_F(CommandsTest, ANumberThatIsNotInTheListIsRefused) {
  for (const char* line : {"share 2", "unshare 2", "share-tcp 2 localhost 1"}) {
    const Commands::Result result = run(line);
    EXPECT_NE(result.status, STATUS_OK);
    EXPECT_NE(result.answer.find("the list has no camera 2"), std::string::npos) << result.answer;
  }
  EXPECT_EQ(fake.commands, std::vector<std::string>{});
}

TEST_F(CommandsTest, WhatTheServiceRefusesIsNotRemembered) {
  run("share nobody");
  EXPECT_EQ(fake.commands, std::vector<std::string>{deviceCommand("share", "nobody")});
  EXPECT_EQ(again(), std::vector<std::string>{});
}

TEST_F(CommandsTest, WhatTheServiceRefusesFailsWithItsReason) {
  fake.list = R"({"cameras":[{"id":"a","name":"A"}],"refusals":[)"
              R"({"change":"refused","camera":"test:X","name":"Desk","reason":"denied"},)"
              R"({"change":"refused","camera":"a","reason":"it is not shared"}]})";
  for (const char* line : {"share test:X", "share Desk", "share-tcp Desk 127.0.0.1 1"}) {
    const Commands::Result result = run(line);
    EXPECT_NE(result.status, STATUS_OK) << line;
    EXPECT_EQ(result.answer, "denied") << line;
  }
  EXPECT_EQ(run("unshare A").answer, "it is not shared");
  EXPECT_TRUE(commands.anyFailed());
  EXPECT_EQ(again(), std::vector<std::string>{});
}

TEST_F(CommandsTest, WhatWasRefusedOfAnotherCameraIsNoFailure) {
  fake.list = R"({"cameras":[{"id":"a","name":"A"}],"refusals":[)"
              R"({"change":"refused","camera":"b","name":"B","reason":"denied"},)"
              R"({"change":"failed","camera":"a","name":"A","reason":"trying again"},)"
              R"({"change":"refused","reason":"the policy is not JSON"}]})";
  EXPECT_EQ(run("share A").status, STATUS_OK);
}

TEST_F(CommandsTest, ADirectConnectionThatFailsIsAFailure) {
  fake.list = R"({"cameras":[{"id":"a","name":"A"}],"refusals":[)"
              R"({"change":"failed","camera":"a","name":"A","reason":"the connection ended"}]})";
  const Commands::Result result = run("share-tcp A 127.0.0.1 1");
  EXPECT_NE(result.status, STATUS_OK);
  EXPECT_EQ(result.answer, "the connection ended");
  EXPECT_EQ(again(), std::vector<std::string>{});
}

TEST_F(CommandsTest, AFileThatCannotBeReadYetWaitsAndIsUnshared) {
  fake.list = R"({"cameras":[],"refusals":[)"
              R"({"change":"refused","camera":"file:x","reason":"unreadable","state":true},)"
              R"({"change":"waiting","camera":"file:x","reason":"","state":true}]})";
  EXPECT_EQ(run("share file:x").status, STATUS_OK);
  EXPECT_EQ(again(), std::vector<std::string>{deviceCommand("share", "file:x")});
  EXPECT_EQ(run("unshare file:x").status, STATUS_OK);
  EXPECT_EQ(again(), std::vector<std::string>{});
}

TEST_F(CommandsTest, ACameraThatDoesNotWorkIsSharedOverADirectConnectionAllTheSame) {
  fake.list = R"({"cameras":[{"id":"a","name":"A","sharedWith":["vm-7"]}],"refusals":[)"
              R"({"change":"failed","camera":"a","name":"A","reason":"busy","state":true}]})";
  EXPECT_EQ(run("share-tcp A 127.0.0.1 1").status, STATUS_OK);
  EXPECT_EQ(again().size(), 1U);
}

TEST_F(CommandsTest, ADirectConnectionIsRepeatedWhileItIsMadeAndForgottenWhenItFails) {
  fake.list = R"({"cameras":[{"id":"a","name":"A"}]})";
  run("share A");
  commands.run("share-tcp A 127.0.0.1 1");
  ASSERT_TRUE(commands.isConnecting());
  ASSERT_EQ(again().size(), 1U);
  EXPECT_TRUE(has(fake.commands[0], "sharetcp"));
  fake.list = R"({"cameras":[{"id":"a","name":"A"}],"refusals":[)"
              R"({"change":"failed","camera":"a","reason":"the connection ended"}]})";
  commands.checkConnection();
  EXPECT_FALSE(commands.isConnecting());
  EXPECT_EQ(commands.results().back().answer, "the connection ended");
  EXPECT_EQ(again(), std::vector<std::string>{deviceCommand("share", "a")}) << "as it was before";
}

TEST_F(CommandsTest, ARefusedPolicyFailsAndIsNotRepeated) {
  const TemporaryDirectory directory;
  writeFile(directory / "policy.json", R"({"policy": 5})");
  fake.list = R"({"cameras":[],"refusals":[{"change":"refused","reason":"the policy lacks ..."}]})";
  const Commands::Result result = run("policy " + (directory / "policy.json"));
  EXPECT_NE(result.status, STATUS_OK);
  EXPECT_EQ(result.answer, "the policy lacks ...");
  EXPECT_EQ(again(), std::vector<std::string>{});
}

TEST_F(CommandsTest, TheCorrectionsOfAPolicyAreSaidWithIt) {
  const TemporaryDirectory directory;
  writeFile(directory / "policy.json", R"({"policy": []})");
  fake.list = R"({"cameras":[],"policyNotes":["cameraQuality \"x\" is not a number; using 50"]})";
  const Commands::Result result = run("policy " + (directory / "policy.json"));
  EXPECT_EQ(result.status, STATUS_OK);
  EXPECT_EQ(result.answer, "  policy: cameraQuality \"x\" is not a number; using 50");
}

TEST_F(CommandsTest, WithoutAListNothingCountsAsCarriedOut) {
  const TemporaryDirectory directory;
  writeFile(directory / "policy.json", R"({"policy": []})");
  fake.list = R"({"cameras":[{"id":"a","name":"A"}],"policyNotes":["of the previous policy"]})";
  run("list");
  fake.listStatus = STATUS_NOT_CONNECTED;
  for (const std::string& line :
       {std::string("share A"), std::string("share-tcp A 127.0.0.1 1"), std::string("unshare A"),
        "policy " + (directory / "policy.json")}) {
    const Commands::Result result = run(line);
    EXPECT_EQ(result.status, STATUS_NOT_CONNECTED) << line;
    EXPECT_EQ(result.answer, "") << line;
  }
}

TEST_F(CommandsTest, AMistypedNameIsRefusedAtOnce) {
  for (const char* line : {"share Fornt", "share front", "share-tcp Frontt 127.0.0.1 1"}) {
    fake.commands.clear();
    const Commands::Result result = run(line);
    EXPECT_NE(result.status, STATUS_OK) << line;
    EXPECT_TRUE(result.answer.ends_with("did you mean \"Front\"?")) << result.answer;
    EXPECT_EQ(fake.commands, std::vector<std::string>{}) << line;
  }
}

TEST_F(CommandsTest, ANameThatDiffersByANumberOrALetterIsAnotherCamera) {
  fake.list = R"({"cameras":[{"id":"a","name":"Cam A"},{"id":"b","name":"Webcam 1"},)"
              R"({"id":"file:a.jpg","name":"a"}]})";
  for (const char* name : {"b", "Webcam2", "file:b.jpg", "Cab"}) {
    fake.commands.clear();
    run(std::string("share ") + name);
    EXPECT_EQ(fake.commands.size(), 1U) << name;
  }
}

TEST_F(CommandsTest, ACameraThatNobodyHasSeenIsSaidToWait) {
  fake.list = R"({"cameras":[],"refusals":[{"change":"waiting","camera":"Desk","reason":""}]})";
  EXPECT_EQ(run("share Desk").answer,
            "no camera has this id or name yet; the share waits until the camera is plugged in");
  EXPECT_FALSE(commands.anyFailed());
}

TEST_F(CommandsTest, WhatTheServiceWaitsForIsRememberedUntilItIsUnshared) {
  fake.list = kWaitsForLate;
  EXPECT_EQ(run("share file:late.jpg").status, STATUS_OK);
  EXPECT_EQ(again(), std::vector<std::string>{deviceCommand("share", "file:late.jpg")});
  EXPECT_EQ(said.back(),
            "sharing file:late.jpg again: done (0); it waits until the camera is "
            "plugged in");
  run("unshare file:late.jpg");
  EXPECT_EQ(again(), std::vector<std::string>{});
}

TEST_F(CommandsTest, WhatIsUnpluggedIsSaidToWait) {
  fake.list = R"({"cameras":[{"id":"a","name":"A","present":false}]})";
  EXPECT_EQ(run("share A").answer, "the share waits until the camera is plugged in");
  EXPECT_EQ(again(), std::vector<std::string>{deviceCommand("share", "a")});
}

TEST_F(CommandsTest, ANameThatWasWaitedForIsUnsharedByTheCamerasId) {
  fake.list = R"({"cameras":[],"refusals":[{"change":"waiting","camera":"Front","reason":""}]})";
  run("share Front");
  fake.list = kTwoCameras;
  run("unshare 0");
  EXPECT_EQ(fake.commands.back(), deviceCommand("unshare", "test:Front"));
  EXPECT_EQ(again(), std::vector<std::string>{});
}

TEST_F(CommandsTest, ANameThatWasWaitedForIsTheCameraOnceItIsThere) {
  fake.list = R"({"cameras":[],"refusals":[{"change":"waiting","camera":"Front","reason":""}]})";
  run("share Front");
  fake.list = kTwoCameras;
  run("unshare Front");
  EXPECT_EQ(fake.commands.back(), deviceCommand("unshare", "test:Front"));
  EXPECT_EQ(again(), std::vector<std::string>{});
}

TEST_F(CommandsTest, PolicyComesBeforeTheShares) {
  const TemporaryDirectory directory;
  const std::string file = directory / "policy.json";
  writeFile(file, R"({"policy": []})");
  run("share 0");
  run("policy " + file);
  EXPECT_EQ(again(), (std::vector<std::string>{R"({"command":"setpolicy","policy":[]})",
                                               deviceCommand("share", "test:Front")}));
}

TEST_F(CommandsTest, SharingAllHoldsButForWhatWasTakenBack) {
  run("share-all 7");
  EXPECT_EQ(again(), std::vector<std::string>{"all 7"});
  run("unshare Back");
  EXPECT_EQ(again(), (std::vector<std::string>{"all 7", deviceCommand("unshare", "test:Back")}));
  run("unshare-all");
  EXPECT_EQ(again(), std::vector<std::string>{});
}

TEST_F(CommandsTest, WhatWasTakenBackStaysSoWhenTheVmAsksForAll) {
  run("unshare Front");
  EXPECT_TRUE(again().empty());
  EXPECT_EQ(again(true), std::vector<std::string>{deviceCommand("unshare", "test:Front")});
  run("share Front");
  EXPECT_EQ(again(true), std::vector<std::string>{deviceCommand("share", "test:Front")});
}

TEST_F(CommandsTest, AllThatWasTakenBackStaysSoWhenTheVmAsksForAll) {
  run("unshare-all");
  run("share Back");
  EXPECT_EQ(again(), std::vector<std::string>{deviceCommand("share", "test:Back")});
  EXPECT_EQ(again(true), (std::vector<std::string>{R"({"command":"unshareall"})",
                                                   deviceCommand("share", "test:Back")}));
  run("share-all 3");
  EXPECT_EQ(again(true), (std::vector<std::string>{"all 3", deviceCommand("share", "test:Back")}));
}

TEST_F(CommandsTest, TheListSaysWhatIsTheMatter) {
  fake.list =
      R"({"cameras":[{"id":"a","name":"A","present":false,"sharedWith":["vm-1"],"inUse":false},)"
      R"({"id":"b","name":"B","present":true,"sharedWith":["vm-1"],"inUse":true},)"
      R"({"id":"c","name":"C","present":true,"sharedWith":[],"inUse":false}],)"
      R"("refusals":[{"change":"refused","camera":"d","reason":"it is unplugged"}],)"
      R"("policyNotes":["quality 200 became 100"]})";
  EXPECT_EQ(run("list").answer,
            "  #  ID  NAME  STATE\n"
            "  0  a   A     unplugged, shared\n"
            "  1  b   B     shared, in use\n"
            "  2  c   C\n"
            "  refused: camera d: it is unplugged\n"
            "  policy: quality 200 became 100");
}

TEST_F(CommandsTest, AnEmptyListSaysSo) {
  fake.list = R"({"cameras":[]})";
  EXPECT_EQ(run("list").answer, "  no cameras");
}

TEST_F(CommandsTest, NamesForgeNoLineOfTheList) {
  fake.list = R"({"cameras":[{"id":"a\nb","name":"A\u001b[31m\u007f\u009b"}],)"
              R"("refusals":[{"change":"refused\n","camera":"\u001b","reason":"\u202e"}],)"
              R"("policyNotes":["\n"]})";
  EXPECT_EQ(run("list").answer,
            "  #  ID   NAME      STATE\n  0  a?b  A?[31m??\n  refused?: camera ?: ?\n  policy: ?");
}

TEST_F(CommandsTest, AListThatGrowsWhileItIsAskedForIsReadWhole) {
  fake.listGrowth = 3;
  EXPECT_EQ(run("list").answer,
            "  #  ID          NAME   STATE\n  0  test:Front  Front\n  1  test:Back   Back");
  EXPECT_EQ(fake.listGrowth, 0);
}

std::string withControls(const std::string& controls) {
  return std::string(kTwoCameras).substr(0, std::string(kTwoCameras).size() - 1) +
         R"(,"controls":[)" + controls + "]}";
}

// What somebody else has shared on this host's behalf holds as if it had been told itself.
TEST_F(CommandsTest, RemembersWhatOthersHaveSharedAndUnshared) {
  run("share Front");
  fake.list = withControls(R"({"camera":"test:Back","shared":true},)"
                           R"({"camera":"test:Front","shared":false})");
  commands.cameras();
  fake.list = kTwoCameras;
  EXPECT_EQ(again(true), (std::vector{deviceCommand("unshare", "test:Front"),
                                      deviceCommand("share", "test:Back")}));
  run("unshare Back");
  EXPECT_EQ(again(), std::vector<std::string>{});
}

TEST_F(CommandsTest, ForgetsAllWhenOthersHaveUnsharedAll) {
  run("share Front");
  run("share-all 2");
  fake.list = withControls(R"({"camera":"","shared":false},{"camera":"test:Back","shared":true})");
  commands.cameras();
  fake.list = kTwoCameras;
  EXPECT_EQ(again(), (std::vector{deviceCommand("share", "test:Back")}));
}

}  // namespace
}  // namespace lumsar::test
