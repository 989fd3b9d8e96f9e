// Tests of options.h and of synthetic camera descriptions. Test's main thread.
#include "app/service_options.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <stdexcept>

#include "sources/synthetic.h"
#include "support/temporary_directory.h"

namespace lumsar::test {
namespace {

using service::Options;

Options read(const QStringList& arguments) {
  static int argc = 1;
  static char name[] = "lumsar-camera-service";
  static char* argv[] = {name, nullptr};
  static const QCoreApplication application(argc, argv);
  ::setenv("XDG_RUNTIME_DIR", "/tmp", 1);
  return service::readOptions(QStringList{"lumsar-camera-service"} + arguments);
}

std::string errorOf(const QStringList& arguments) {
  try {
    read(arguments);
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
  return {};
}

TEST(OptionsTest, Defaults) {
  const Options options = read({});
  EXPECT_EQ(options.action, Options::Action::Serve);
  EXPECT_EQ(options.channel, "lumsar");
  EXPECT_FALSE(options.verbose);
  EXPECT_TRUE(options.synthetic.empty());
}

TEST(OptionsTest, HelpAndVersionArePrinted) {
  const Options help = read({"--help"});
  EXPECT_EQ(help.action, Options::Action::PrintAndExit);
  for (const char* option : {"--ipc-channel", "--camera", "--watch", "--allow", "--deny",
                             "--status", "--json", "--verbose", "--version"}) {
    EXPECT_NE(help.text.find(option), std::string::npos) << option;
  }
  EXPECT_EQ(read({"--version"}).text, "lumsar-camera-service " LUMSAR_VERSION "\n");
}

TEST(OptionsTest, CamerasAndFolders) {
  const TemporaryDirectory dir;
  std::ofstream(dir / "p.jpg") << "x";
  const Options options =
      read({"--camera", "test:Front,640x480@15", "--camera",
            QString::fromStdString("file:" + (dir / "p.jpg")), "--watch",
            QString::fromStdString(dir.path()), "--status", "--json", "--ipc-channel", "other"});
  ASSERT_EQ(options.synthetic.size(), 1U);
  EXPECT_EQ(options.synthetic.front().id, "test:Front");
  EXPECT_EQ(options.files, std::vector<std::string>{dir / "p.jpg"});
  EXPECT_EQ(options.folders, std::vector<std::string>{dir.path()});
  EXPECT_EQ(options.action, Options::Action::Status);
  EXPECT_TRUE(options.json);
  EXPECT_EQ(options.channel, "other");
}

TEST(OptionsTest, MistakesAreSaid) {
  EXPECT_NE(errorOf({"--nonsense"}).find("nonsense"), std::string::npos);
  EXPECT_NE(errorOf({"extra"}).find("extra"), std::string::npos);
  EXPECT_NE(errorOf({"--camera", "webcam"}).find("test:NAME"), std::string::npos);
  EXPECT_NE(errorOf({"--camera", "test:"}).find("name"), std::string::npos);
  EXPECT_NE(errorOf({"--camera", "file:/no/such/file"}).find("no readable file"),
            std::string::npos);
  EXPECT_NE(errorOf({"--watch", "/no/such/folder"}).find("no readable folder"), std::string::npos);
  EXPECT_NE(errorOf({"--deny", ""}).find("CAMERA"), std::string::npos);
  EXPECT_NE(errorOf({"--ipc-channel", "a/b"}).find("cannot be used"), std::string::npos);
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
