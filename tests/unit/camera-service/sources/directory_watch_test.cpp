// Tests of directory_watch.h: files that appear and vanish, half-written ones. The test runs the
// io_context itself.
#include "sources/directory_watch.h"

#include <gtest/gtest.h>
#include <sys/mount.h>

#include <set>
#include <stdexcept>

#include "support/eventually.h"
#include "support/temporary_directory.h"

namespace lumsar::test {
namespace {

namespace fs = std::filesystem;

class DirectoryWatchTest : public ::testing::Test {
 protected:
  void begin() {
    watch.emplace(io, dir.path(),
                  service::DirectoryWatch::Events{[this](const std::string& path) {
                                                    ++appearances;
                                                    present.insert(fs::path(path).filename());
                                                  },
                                                  [this](const std::string& path) {
                                                    present.erase(fs::path(path).filename());
                                                  }});
  }
  bool await(const std::set<std::string>& expected) {
    return eventuallyIn(io, [&] { return present == expected; });
  }
  void write(const std::string& name) const { writeFile(dir / name, "content"); }

  TemporaryDirectory dir;
  asio::io_context io;
  std::set<std::string> present;
  int appearances = 0;
  std::optional<service::DirectoryWatch> watch;
};

TEST_F(DirectoryWatchTest, FilesThatAreThere) {
  write("a");
  fs::create_directory(dir / "folder");
  begin();
  EXPECT_TRUE(await({"a"}));
}

TEST_F(DirectoryWatchTest, FilesThatComeAndGo) {
  begin();
  write("a");
  EXPECT_TRUE(await({"a"}));
  write("b");
  EXPECT_TRUE(await({"a", "b"}));
  fs::remove(dir / "a");
  EXPECT_TRUE(await({"b"}));
  fs::rename(dir / "b", dir / "c");
  EXPECT_TRUE(await({"c"}));
}

TEST_F(DirectoryWatchTest, AFileThatIsStillWrittenIsNotThereYet) {
  begin();
  std::ofstream file(dir / "slow");
  file << "half" << std::flush;
  std::this_thread::sleep_for(milliseconds(30));
  EXPECT_TRUE(await({}));
  file.close();
  EXPECT_TRUE(await({"slow"}));
}

TEST_F(DirectoryWatchTest, AFileWrittenAgainAppearsAgain) {
  begin();
  write("a");
  ASSERT_TRUE(await({"a"}));
  write("a");
  EXPECT_TRUE(eventuallyIn(io, [&] { return appearances == 2; }));
}

TEST_F(DirectoryWatchTest, TemporaryAndHiddenFilesAreNone) {
  begin();
  for (const char* name : {".hidden", "x.part", "x.tmp", "x~"}) write(name);
  write("real");
  EXPECT_TRUE(await({"real"}));
  fs::rename(dir / "x.part", dir / "x");
  EXPECT_TRUE(await({"real", "x"}));
}

TEST_F(DirectoryWatchTest, LinksCount) {
  begin();
  const TemporaryDirectory elsewhere;
  writeFile(elsewhere / "target", "content");
  fs::create_symlink(elsewhere / "target", dir / "symbolic");
  fs::create_hard_link(elsewhere / "target", dir / "hard");
  fs::create_symlink(elsewhere / "nothing", dir / "dangling");
  EXPECT_TRUE(await({"symbolic", "hard"}));
}

TEST_F(DirectoryWatchTest, AFolderThatVanishesTakesItsFilesAlong) {
  write("a");
  begin();
  ASSERT_TRUE(await({"a"}));
  fs::remove_all(dir.path());
  EXPECT_TRUE(await({}));
}

TEST_F(DirectoryWatchTest, AFolderThatIsUnmountedTakesItsFilesAlong) {
  if (::mount("tmpfs", dir.path().c_str(), "tmpfs", 0, nullptr) != 0) {
    GTEST_SKIP() << "mounting needs root: " << std::strerror(errno);
  }
  write("a");
  begin();
  EXPECT_TRUE(await({"a"}));
  EXPECT_EQ(::umount(dir.path().c_str()), 0);
  EXPECT_TRUE(await({}));
}

TEST_F(DirectoryWatchTest, AFolderThatIsNotThereIsSaid) {
  const auto events = service::DirectoryWatch::Events{};
  EXPECT_THROW(service::DirectoryWatch(io, dir / "missing", events), std::runtime_error);
}

}  // namespace
}  // namespace lumsar::test
