// The program lumsar-camera-service: exit codes, status, start and stop. It is a process of its
// own.
#include <sys/resource.h>

#include "base/version.h"
#include "json/json.h"
#include "support/process.h"
#include "support/raw_peer.h"
#include "support/temporary_directory.h"
#include "unit/camera-service/test_host.h"

namespace lumsar::test {
namespace {

class CommandLineTest : public ServiceTest {
 protected:
  struct Outcome {
    int code = 0;
    std::string output;
  };
  static Outcome run(Process::Words words) {
    words.insert(words.begin(), CAMERA_SERVICE);
    Process service(words);
    const int code = service.wait();
    return {code, service.output()};
  }
};

TEST_F(CommandLineTest, HelpAndVersion) {
  const Outcome help = run({"--help"});
  EXPECT_EQ(help.code, 0);
  EXPECT_NE(help.output.find("--camera"), std::string::npos);
  EXPECT_EQ(run({"--version"}).output,
            std::string("lumsar-camera-service ") + base::kVersion + "\n");
}

TEST_F(CommandLineTest, WrongUsageIsExitCode2) {
  const Outcome outcome = run({"--camera", "webcam"});
  EXPECT_EQ(outcome.code, 2);
  EXPECT_NE(outcome.output.find("--help"), std::string::npos);
  EXPECT_EQ(run({"--nonsense"}).code, 2);
  EXPECT_EQ(run({"extra"}).code, 2);
}

TEST_F(CommandLineTest, WithoutRuntimeDirectoryItSaysWhatToDo) {
  ::unsetenv("XDG_RUNTIME_DIR");
  if (std::filesystem::exists("/run/user/" + std::to_string(::geteuid()))) GTEST_SKIP();
  EXPECT_NE(run({}).output.find("set XDG_RUNTIME_DIR"), std::string::npos);
}

TEST_F(CommandLineTest, StopsCleanlyOnEachSignal) {
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    start({"--camera", "test:A,320x240@30"});
    const auto host = newHost();
    watch(*host, "test:A");
    m_service->signal(signal);
    EXPECT_EQ(m_service->wait(), 0) << log();
    EXPECT_FALSE(std::filesystem::exists(channel));
    EXPECT_TRUE(host->recorder.awaitClose());
    m_service.reset();
  }
}

TEST_F(CommandLineTest, StopsAtOnceWithManyFilesToLookInto) {
  const std::string folder = dir / "cameras";
  std::filesystem::create_directory(folder);
  makePicture(folder + "/0.jpg", 640, 480);
  for (int i = 1; i < 3000; ++i) {
    std::filesystem::create_hard_link(folder + "/0.jpg", folder + "/" + std::to_string(i) + ".jpg");
  }
  start({"--watch", folder});
  const auto begin = std::chrono::steady_clock::now();
  m_service->signal(SIGTERM);
  EXPECT_EQ(m_service->wait(), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20))
      << "the look into one file may take 3 s, and may be tried once more";
  m_service.reset();
}

TEST_F(CommandLineTest, MayOpenAsManyFilesAsTheSystemAllows) {
  rlimit before{};
  ::getrlimit(RLIMIT_NOFILE, &before);
  const rlimit few{before.rlim_cur / 2, before.rlim_max};
  ::setrlimit(RLIMIT_NOFILE, &few);  // a started program inherits it
  start({"--camera", "test:A"});
  ::setrlimit(RLIMIT_NOFILE, &before);
  rlimit found{};
  ASSERT_EQ(::prlimit(m_service->id(), RLIMIT_NOFILE, nullptr, &found), 0);
  EXPECT_EQ(found.rlim_cur, before.rlim_max);
}

TEST_F(CommandLineTest, ASecondServiceIsRefused) {
  start({"--camera", "test:A"});
  const Outcome second = run({"--ipc-channel", channel});
  EXPECT_EQ(second.code, 1);
  EXPECT_NE(second.output.find("already running"), std::string::npos);
  EXPECT_TRUE(newHost()->awaitCamera("test:A")) << "the first goes on";
}

TEST_F(CommandLineTest, AChannelIsASocketInTheRuntimeDirectory) {
  Process service({CAMERA_SERVICE, "--ipc-channel", "cams", "--camera", "test:A"});
  EXPECT_TRUE(service.says("listening at " + dir / "lumsar/cams.sock"));
  TestHost host("cams");
  EXPECT_TRUE(host.awaitCamera("test:A"));
  service.signal(SIGTERM);
  EXPECT_EQ(service.wait(), 0);
}

TEST_F(CommandLineTest, StatusForPeopleAndPrograms) {
  start({"--camera", "test:A,320x240@30"});
  watch(host(), "test:A");
  host().records.await(CameraDataKind::Frame, 5);
  const Outcome people = run({"--status", "--ipc-channel", channel});
  EXPECT_EQ(people.code, 0);
  for (const char* part : {"test:A", "320x240", "encoded: the camera delivers I420", "vm-7",
                           "SHARED WITH", "  #  ID ", "  VM    CAMERA  THROUGH  STATE"}) {
    EXPECT_NE(people.output.find(part), std::string::npos) << people.output;
  }
  const Outcome program = run({"--status", "--json", "--ipc-channel", channel});
  EXPECT_EQ(program.code, 0);
  std::string text = program.output;
  text.erase(text.find_last_not_of('\n') + 1);
  const json::Reading json = json::readObject(text);
  ASSERT_EQ(json.error, "");
  const QJsonObject camera = TestHost::camera(json.object, "test:A");
  EXPECT_TRUE(camera.value("running").toBool());
  EXPECT_GE(camera.value("frames").toInt(), 5);
  EXPECT_GT(camera.value("bytes").toInt(), 0);
  EXPECT_GT(camera.value("encodeMicroseconds").toInt(), 0);
  bool found = false;
  for (const QJsonValue& value : json.object.value("hosts").toArray()) {
    if (value.toObject().value("vmId").toString() != "vm-7") continue;
    const QJsonObject share = value.toObject().value("shares").toArray().at(0).toObject();
    EXPECT_EQ(share.value("camera").toString(), "test:A");
    EXPECT_EQ(share.value("link").toString(), "host");
    EXPECT_TRUE(share.value("started").toBool());
    EXPECT_GE(share.value("frames").toInt(), 5);
    EXPECT_EQ(share.value("dropped").toInt(), 0);
    found = true;
  }
  EXPECT_TRUE(found);
  EXPECT_EQ(json.object.value("hosts").toArray().size(), 1) << "who asks is not a host";
  EXPECT_EQ(log().find("--status"), std::string::npos) << log();
}

TEST_F(CommandLineTest, StatusOfAnIdleServiceSaysSo) {
  start({"--camera", "test:A,320x240@30", "--deny", "*"});
  const Outcome people = run({"--status", "--ipc-channel", channel});
  EXPECT_NE(people.output.find("no host is connected"), std::string::npos) << people.output;
}

TEST_F(CommandLineTest, NoNameReachesTheTerminalAsItIs) {
  const std::string evil = "a\x1b[31m\x7f\xc2\x9b\xe2\x80\xae";
  const std::string folder = dir / "cameras";
  std::filesystem::create_directory(folder);
  makePicture(folder + "/" + evil + ".jpg", 64, 64);
  start({"--watch", folder});
  TestHost host(channel, evil);
  ASSERT_TRUE(host.awaitCamera("file:" + evil + ".jpg"));
  host.share("file:" + evil + ".jpg");
  host.records.await(CameraDataKind::Announced);
  host.share("later" + evil);
  host.awaitChange("waiting");
  for (const std::string& shown : {run({"--status", "--ipc-channel", channel}).output, log()}) {
    EXPECT_NE(shown.find("file:a"), std::string::npos) << shown;
    for (const char* control : {"\x1b", "\x7f", "\xc2\x9b", "\xe2\x80\xae"}) {
      EXPECT_EQ(shown.find(control), std::string::npos) << shown;
    }
  }
}

TEST_F(CommandLineTest, StatusWithoutServiceIsExitCode1) {
  const Outcome outcome = run({"--status", "--ipc-channel", channel});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_NE(outcome.output.find("not running"), std::string::npos);
}

TEST_F(CommandLineTest, StrangersDoNotDisturbIt) {
  start({"--camera", "test:A,320x240@30"});
  watch(host(), "test:A");
  const RawPeer garbage(channel);
  garbage.send(Bytes(5000, 'g'));
  EXPECT_TRUE(garbage.ended());
  const RawPeer silent(channel);
  const RawPeer half(channel);
  half.send(message(IPC_MSG_CONNECT_REQUEST, "half"));
  Bytes begun = message(IPC_MSG_DATA, "payload");
  begun.pop_back();
  half.send(begun);
  const std::size_t frames = host().records.count(CameraDataKind::Frame);
  host().records.await(CameraDataKind::Frame, frames + 5);
  EXPECT_TRUE(m_service->says("not a message"));
}

}  // namespace
}  // namespace lumsar::test
