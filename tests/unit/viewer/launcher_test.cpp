// lumsar-viewer: what it starts, and with what.
#include <gtest/gtest.h>

#include <filesystem>

#include "support/process.h"
#include "support/temporary_directory.h"
#include "support/text.h"

namespace lumsar::test {
namespace {

struct ViewerLauncher : testing::Test {
  // A program that says how it was started.
  void install(const std::string& name) {
    const std::string path = directory.path() + "/" + name;
    writeFile(path, "#!/bin/sh\necho \"" + name + " $# $*\"\necho \"$GTK_MODULES\"\nexit 7\n");
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
  }
  int run(std::vector<std::string> words, const std::string& modules = {}) {
    words.insert(words.begin(), LUMSAR_VIEWER);
    Process process(words, {.environment = {{"PATH", directory.path() + ":/nowhere"},
                                            {"GTK_MODULES", modules}}});
    const int status = process.wait();
    output = process.output();
    return status;
  }

  const std::string module = std::filesystem::canonical(LUMSAR_GTK_MODULE);
  TemporaryDirectory directory;
  std::string output;
};

TEST_F(ViewerLauncher, TheViewerGetsTheModuleAndItsOwnArguments) {
  install("any");
  EXPECT_EQ(run({"any", "--attach", "--help", "a VM"}), 7);
  EXPECT_EQ(output, "any 3 --attach --help a VM\n" + module + "\n");
}

TEST_F(ViewerLauncher, OtherModulesStay) {
  install("any");
  run({"any"}, "gail:atk-bridge");
  EXPECT_EQ(output, "any 0 \ngail:atk-bridge:" + module + "\n");
}

TEST_F(ViewerLauncher, WithoutAViewerTheFirstInstalledOne) {
  install("spicy");
  install("virt-viewer");
  EXPECT_EQ(run({}), 7);
  EXPECT_TRUE(output.starts_with("virt-viewer 0")) << output;
}

TEST_F(ViewerLauncher, SaysThatThereIsNoViewer) {
  EXPECT_EQ(run({}), 1);
  EXPECT_TRUE(has(output,
                  "none of remote-viewer, virt-viewer, virt-manager, spicy, gnome-boxes is "
                  "installed"))
      << output;
  EXPECT_EQ(run({"missing"}), 1);
  EXPECT_TRUE(has(output, "cannot start missing: No such file or directory")) << output;
}

TEST_F(ViewerLauncher, ItsOwnOptionsComeFirst) {
  EXPECT_EQ(run({"--wrong", "any"}), 2);
  EXPECT_EQ(run({"--help"}), 0);
  EXPECT_TRUE(has(output, "LUMSAR_VM_ID")) << output;
}

}  // namespace
}  // namespace lumsar::test
