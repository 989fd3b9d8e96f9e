// Tests of options.h and of synthetic camera descriptions. Test's main thread.
#include "app/service_options.h"

#include <gtest/gtest.h>

#include "base/errors.h"
#include "base/version.h"
#include "sources/synthetic.h"
#include "support/temporary_directory.h"
#include "support/text.h"

namespace lumsar::test {
namespace {

using service::Options;

std::optional<Options> parse(std::vector<const char*> arguments) {
  ::setenv("XDG_RUNTIME_DIR", "/tmp", 1);
  static const int withoutUsersFile = ::setenv("XDG_CONFIG_HOME", "/dev/null", 1);
  EXPECT_EQ(withoutUsersFile, 0);
  arguments.insert(arguments.begin(), "lumsar-camera-service");
  return service::parseOptions(static_cast<int>(arguments.size()), arguments.data());
}

std::string printed(const char* argument) {
  ::testing::internal::CaptureStdout();
  EXPECT_FALSE(parse({argument}));
  return ::testing::internal::GetCapturedStdout();
}

std::string refusal(const std::vector<const char*>& arguments) {
  return errorOf<base::UsageError>([&] { parse(arguments); });
}

TEST(OptionsTest, Defaults) {
  const Options options = *parse({});
  EXPECT_FALSE(options.status);
  EXPECT_EQ(options.channel, "lumsar");
  EXPECT_FALSE(options.verbose);
  EXPECT_TRUE(options.synthetic.empty());
}

TEST(OptionsTest, HelpAndVersionArePrinted) {
  const std::string help = printed("--help");
  for (const char* option : {"--ipc-channel", "--camera", "--watch", "--allow", "--deny",
                             "--direct-to", "--status", "--json", "--verbose", "--version"}) {
    EXPECT_NE(help.find(option), std::string::npos) << option;
  }
  EXPECT_EQ(printed("--version"), std::string("lumsar-camera-service ") + base::kVersion + "\n");
}

TEST(OptionsTest, ComeFromTheUsersFileToo) {
  const TemporaryDirectory dir;
  std::filesystem::create_directory(dir / "lumsar");
  const std::string file = dir / "lumsar/camera-service.conf";
  writeFile(file,
            "camera = test:Front,640x480@15\nwatch = " + dir.path() + "\ndeny = test:*@vm-9\n");
  EXPECT_TRUE(parse({}));
  ::setenv("XDG_CONFIG_HOME", dir.path().c_str(), 1);
  const Options options = *parse({"--camera", "test:Back", "--deny", "Back"});
  const auto refusalOf = [&](const std::string& name, const char* vm) {
    service::CameraInfo camera;
    camera.id = "test:" + name;
    camera.name = name;
    return options.access.refusal(camera, vm);
  };
  EXPECT_EQ(options.synthetic.size(), 2U);
  EXPECT_EQ(options.directories, std::vector<std::string>{dir.path()});
  EXPECT_NE(refusalOf("Front", "vm-9"), "");
  EXPECT_NE(refusalOf("Back", "vm-1"), "");
  EXPECT_EQ(refusalOf("Front", "vm-1"), "");
  writeFile(file, "deny = @\n");
  EXPECT_TRUE(has(refusal({}), file + ":1: deny: expected CAMERA")) << refusal({});
  EXPECT_TRUE(parse({"--status"}));
  ::setenv("XDG_CONFIG_HOME", "/dev/null", 1);
  EXPECT_TRUE(parse({}));
}

TEST(OptionsTest, CamerasAndDirectories) {
  const TemporaryDirectory dir;
  writeFile(dir / "p.jpg", "x");
  const std::string file = "file:" + (dir / "p.jpg");
  const std::string directory = dir.path();
  const Options options =
      *parse({"--camera", "test:Front,640x480@15", "--camera", file.c_str(), "--watch",
              directory.c_str(), "--status", "--json", "--ipc-channel", "other"});
  ASSERT_EQ(options.synthetic.size(), 1U);
  EXPECT_EQ(options.synthetic.front().id, "test:Front");
  EXPECT_EQ(options.files, std::vector<std::string>{dir / "p.jpg"});
  EXPECT_EQ(options.directories, std::vector<std::string>{dir.path()});
  EXPECT_TRUE(options.status);
  EXPECT_TRUE(options.json);
  EXPECT_EQ(options.channel, "other");
}

TEST(OptionsTest, MistakesAreSaid) {
  EXPECT_NE(refusal({"--nonsense"}).find("nonsense"), std::string::npos);
  EXPECT_NE(refusal({"extra"}).find("extra"), std::string::npos);
  EXPECT_NE(refusal({"--camera", "webcam"}).find("test:NAME"), std::string::npos);
  EXPECT_NE(refusal({"--camera", "test:"}).find("name"), std::string::npos);
  EXPECT_NE(refusal({"--camera", "file:/no/such/file"}).find("no readable file"),
            std::string::npos);
  EXPECT_NE(refusal({"--watch", "/no/such/directory"}).find("no readable directory"),
            std::string::npos);
  EXPECT_NE(refusal({"--deny", ""}).find("--deny needs a value"), std::string::npos);
  EXPECT_NE(refusal({"--direct-to", "10.0.0.0/33"}).find("10.0.0.0/8"), std::string::npos);
  EXPECT_NE(refusal({"--ipc-channel", "a/b"}).find("cannot be used"), std::string::npos);
}

TEST(SyntheticTest, Descriptions) {
  const auto camera = service::syntheticCamera("Front,640x480@15");
  EXPECT_EQ(camera.name, "Front");
  EXPECT_EQ(camera.format, (service::CameraFormat{"I420", 640, 480, 15, 1}));
  EXPECT_EQ(service::syntheticCamera("Front").format,
            (service::CameraFormat{"I420", 1280, 720, 30, 1}));
  EXPECT_EQ(service::syntheticCamera("Front,320x240").format,
            (service::CameraFormat{"I420", 320, 240, 30, 1}));
}

TEST(SyntheticTest, WrongDescriptionsAreSaid) {
  for (const char* description :
       {"", ",640x480", "F,640", "F,640x", "F,x480", "F,641x480", "F,1x1", "F,99999x480",
        "F,640x480@", "F,640x480@0", "F,640x480@500", "F,640x480@30x", "F,640*480", "F,-640x480"}) {
    EXPECT_THROW(service::syntheticCamera(description), std::invalid_argument) << description;
  }
}

}  // namespace
}  // namespace lumsar::test
