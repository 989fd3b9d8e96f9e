#include "base/system/files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <fstream>

#include "base/system/dynamic_library.h"
#include "base/system/fd.h"
#include "support/temporary_directory.h"
#include "support/text.h"

namespace lumsar::test {
namespace {

using namespace base;
using base::bytesOf;
using test::TemporaryDirectory;

TEST(Files, AreReplacedWhole) {
  const TemporaryDirectory dir;
  EXPECT_TRUE(replaceFile(dir / "f", bytesOf("first, and longer")));
  EXPECT_TRUE(replaceFile(dir / "f", bytesOf("second")));
  EXPECT_EQ(readFile(dir / "f"), "second");
  EXPECT_FALSE(std::filesystem::exists(dir / "f.part"));
}

TEST(Files, StayAsTheyWereOnFailure) {
  const TemporaryDirectory dir;
  std::filesystem::create_directories(dir / "taken/by");
  EXPECT_FALSE(replaceFile(dir / "taken", bytesOf("x")));
  EXPECT_EQ(errno, EISDIR);
  EXPECT_TRUE(std::filesystem::exists(dir / "taken/by"));
  EXPECT_FALSE(std::filesystem::exists(dir / "taken.part"));
  EXPECT_FALSE(replaceFile(dir / "no/such", bytesOf("x")));
  EXPECT_EQ(errno, ENOENT);
}

TEST(Files, AreNotWrittenThroughALinkThatSomebodyHasPutThere) {
  const TemporaryDirectory dir;
  writeFile(dir / "precious", "precious");
  std::filesystem::create_symlink(dir / "precious", dir / "f.part");
  EXPECT_TRUE(replaceFile(dir / "f", bytesOf("x")));
  EXPECT_EQ(readFile(dir / "precious"), "precious");
  EXPECT_EQ(readFile(dir / "f"), "x");
  EXPECT_FALSE(std::filesystem::is_symlink(dir / "f"));
  std::filesystem::create_symlink(dir / "precious", dir / "g");
  EXPECT_FALSE(openForWriting(dir / "g"));
  EXPECT_EQ(errno, ELOOP);
  EXPECT_EQ(readFile(dir / "precious"), "precious");
}

TEST(Files, OfOtherUsersAreNotWritten) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can give a file away";
  const TemporaryDirectory dir;
  writeFile(dir / "f", "theirs");
  writeFile(dir / "g.part", "theirs");
  ASSERT_EQ(chown((dir / "f").c_str(), 12345, 12345), 0);
  ASSERT_EQ(chown((dir / "g.part").c_str(), 12345, 12345), 0);
  EXPECT_FALSE(openForWriting(dir / "f"));
  EXPECT_EQ(errno, EPERM);
  EXPECT_EQ(readFile(dir / "f"), "theirs");
  EXPECT_TRUE(replaceFile(dir / "g", bytesOf("mine")));
  struct stat status {};
  stat((dir / "g").c_str(), &status);
  EXPECT_EQ(status.st_uid, 0U);
}

TEST(Files, AFullDiskIsSaid) {
  std::ofstream full("/dev/full");
  if (!full) GTEST_SKIP() << "no /dev/full here";
  const UniqueFd fd(::open("/dev/full", O_WRONLY | O_CLOEXEC));
  EXPECT_FALSE(writeAll(fd.get(), bytesOf("x")));
  EXPECT_EQ(errno, ENOSPC);
}

TEST(Files, ALimitOfTheirSizeIsSaidAndLeavesNothing) {
  const TemporaryDirectory dir;
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit small{10, before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &small);
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  const bool good = replaceFile(dir / "file", bytesOf("longer than ten bytes"));
  const int error = errno;
  setrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, handler);
  EXPECT_FALSE(good);
  EXPECT_EQ(error, EFBIG);
  EXPECT_TRUE(dir.files().empty());
}

TEST(Files, APeerThatIsGoneRaisesNoSignal) {
  std::array<int, 2> pair{};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair.data()), 0);
  const UniqueFd here(pair[0]);
  UniqueFd there(pair[1]);
  EXPECT_TRUE(sendAll(here.get(), bytesOf("x")));
  there.reset();
  EXPECT_FALSE(sendAll(here.get(), bytesOf("x")));
}

TEST(TemporaryDirectory, GoesWithAllThatIsInIt) {
  std::string path;
  {
    const TemporaryDirectory dir;
    path = dir.path();
    std::filesystem::create_directories(dir / "a/b");
  }
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(DynamicLibrary, BindsFunctionsAndSaysWhatIsMissing) {
  const DynamicLibrary library("libm.so.6");
  double (*cosine)(double) = nullptr;
  library.bind("cos", cosine);
  EXPECT_EQ(cosine(0), 1);
  EXPECT_TRUE(has(errorOf<Failure>([&] { library.bind("no_such", cosine); }), "no_such"));
  EXPECT_TRUE(has(errorOf<Failure>([] { DynamicLibrary("libno-such.so"); }), "libno-such"));
}

}  // namespace
}  // namespace lumsar::test
