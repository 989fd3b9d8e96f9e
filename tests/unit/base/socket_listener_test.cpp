#include "base/net/socket_listener.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "base/text/format.h"
#include "support/raw_peer.h"
#include "support/temporary_directory.h"
#include "support/text.h"

namespace lumsar::test {
namespace {

using namespace base;
using test::TemporaryDirectory;

using Directory = SocketListener::Directory;

Address unixAddress(const std::string& path) {
  return {path, {}, 0};
}

unsigned int modeOf(const std::string& path) {
  struct stat status = {};
  return ::lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
}

template <class Error>
std::string listenError(const Address& address, Directory directory = Directory::AsItIs) {
  return errorOf<Error>([&] { SocketListener::at(address, directory); });
}

TEST(SocketListener, DirectoryAndSocketAreTheUsersOwn) {
  const TemporaryDirectory dir;
  const mode_t before = ::umask(0);
  const auto listener = SocketListener::at(unixAddress(dir / "lumsar/x.sock"), Directory::Make);
  ::umask(before);
  EXPECT_EQ(modeOf(dir / "lumsar"), 0700U);
  EXPECT_EQ(modeOf(dir / "lumsar/x.sock"), 0600U);
  EXPECT_EQ(listener.name(), dir / "lumsar/x.sock");
  EXPECT_TRUE(RawPeer(dir / "lumsar/x.sock").connected());
}

TEST(SocketListener, ALooseDirectoryIsMadePrivateOrLeftAsItIs) {
  const TemporaryDirectory dir;
  ::mkdir((dir / "lumsar").c_str(), 0755);
  ::chmod((dir / "lumsar").c_str(), 0755);
  for (const Directory kept : {Directory::AsItIs, Directory::Make}) {
    const auto listener = SocketListener::at(unixAddress(dir / "lumsar/x.sock"), kept);
    EXPECT_EQ(modeOf(dir / "lumsar"), 0755U);
  }
  const auto listener =
      SocketListener::at(unixAddress(dir / "lumsar/x.sock"), Directory::MakePrivate);
  EXPECT_EQ(modeOf(dir / "lumsar"), 0700U);
}

TEST(SocketListener, APrivateDirectoryIsNotReachedThroughALink) {
  const TemporaryDirectory dir;
  ::mkdir((dir / "target").c_str(), 0755);
  ::chmod((dir / "target").c_str(), 0755);
  std::filesystem::create_symlink(dir / "target", dir / "lumsar");
  const std::string error =
      listenError<Failure>(unixAddress(dir / "lumsar/x.sock"), Directory::MakePrivate);
  EXPECT_TRUE(has(error, "it must be this user's own")) << error;
  EXPECT_EQ(modeOf(dir / "target"), 0755U);
  EXPECT_FALSE(std::filesystem::exists(dir / "target/x.sock"));
}

TEST(SocketListener, APrivateDirectoryIsNotMadeInAnotherUsers) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give a directory away";
  const TemporaryDirectory dir;
  ::mkdir((dir / "run").c_str(), 0700);
  ASSERT_EQ(::chown((dir / "run").c_str(), 12345, 12345), 0);
  const std::string error =
      listenError<Failure>(unixAddress(dir / "run/lumsar/x.sock"), Directory::MakePrivate);
  EXPECT_TRUE(has(error, "run belongs to another user")) << error;
  EXPECT_FALSE(std::filesystem::exists(dir / "run/lumsar"));
}

TEST(SocketListener, TheFileGoesWithTheListener) {
  const TemporaryDirectory dir;
  { const auto listener = SocketListener::at(unixAddress(dir / "x.sock")); }
  EXPECT_FALSE(std::filesystem::exists(dir / "x.sock"));
}

TEST(SocketListener, ASuccessorsFileStays) {
  const TemporaryDirectory dir;
  std::optional<RawListener> successor;
  {
    const auto listener = SocketListener::at(unixAddress(dir / "x.sock"));
    std::filesystem::rename(dir / "x.sock", dir / "former.sock");
    successor.emplace(dir / "x.sock");
  }
  EXPECT_TRUE(std::filesystem::exists(dir / "x.sock"));
}

TEST(SocketListener, AStaleSocketIsReplaced) {
  const TemporaryDirectory dir;
  { const RawListener dead(dir / "x.sock"); }
  ASSERT_TRUE(std::filesystem::exists(dir / "x.sock"));
  const auto listener = SocketListener::at(unixAddress(dir / "x.sock"));
  EXPECT_TRUE(RawPeer(dir / "x.sock").connected());
}

TEST(SocketListener, ALiveSocketIsRefused) {
  const TemporaryDirectory dir;
  const auto listener = SocketListener::at(unixAddress(dir / "x.sock"));
  EXPECT_NE(
      listenError<AddressInUse>(unixAddress(dir / "x.sock")).find("another program serves it"),
      std::string::npos);
  EXPECT_TRUE(RawPeer(dir / "x.sock").connected());
}

TEST(SocketListener, AFileThatIsNotASocketIsLeftAlone) {
  const TemporaryDirectory dir;
  std::ofstream(dir / "x.sock") << "precious";
  EXPECT_NE(listenError<Failure>(unixAddress(dir / "x.sock")).find("a file that is not a socket"),
            std::string::npos);
  EXPECT_EQ(std::filesystem::file_size(dir / "x.sock"), 8U);
}

TEST(SocketListener, AMissingDirectoryIsSaid) {
  const TemporaryDirectory dir;
  const Address address = unixAddress(dir / "no/such/x.sock");
  EXPECT_NE(listenError<Failure>(address, Directory::Make).find("cannot create the directory"),
            std::string::npos);
  EXPECT_NE(listenError<Failure>(address).find("check that its directory exists"),
            std::string::npos);
}

TEST(SocketListener, ListensOnLoopbackUnlessToldOtherwise) {
  const auto loopback = SocketListener::at(parseAddress("tcp:0"));
  EXPECT_TRUE(loopback.name().starts_with("tcp:127.0.0.1:")) << loopback.name();
  EXPECT_TRUE(RawPeer(loopback.name()).connected());
  EXPECT_TRUE(SocketListener::at(parseAddress("tcp:0.0.0.0:0")).name().starts_with("tcp:0.0.0.0:"));
}

TEST(SocketListener, ATakenPortIsSaidToBeTaken) {
  const auto first = SocketListener::at(parseAddress("tcp:0"));
  const std::string error = listenError<AddressInUse>(parseAddress(first.name()));
  EXPECT_NE(error.find("already in use; stop the program"), std::string::npos) << error;
}

TEST(SocketListener, NothingIsInheritedWithoutAManager) {
  ::unsetenv("LISTEN_PID");
  EXPECT_FALSE(SocketListener::inherited().has_value());
  ::setenv("LISTEN_PID", "1", 1);
  ::setenv("LISTEN_FDS", "1", 1);
  EXPECT_FALSE(SocketListener::inherited().has_value());
}

// In a child process, because descriptor 3 must be free there.
int inheritIn(const std::string& path, bool good) {
  const pid_t child = ::fork();
  if (child != 0) {
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  const RawListener manager(path);
  const RawPeer probe(path);
  const int copy = ::fcntl(good ? manager.fd() : probe.fd(), F_DUPFD, 64);
  ::dup2(copy, 3);
  ::setenv("LISTEN_PID", std::to_string(::getpid()).c_str(), 1);
  ::setenv("LISTEN_FDS", "1", 1);
  int result = 1;
  try {
    const auto listener = SocketListener::inherited();
    if (listener && listener->get() == 3 && listener->name() == path &&
        ::getenv("LISTEN_FDS") == nullptr && (::fcntl(3, F_GETFD) & FD_CLOEXEC) != 0) {
      result = 0;
    }
  } catch (const Failure&) {
    result = 2;
  }
  ::_exit(result);
}

TEST(SocketListener, TheManagersSocketIsTaken) {
  const TemporaryDirectory dir;
  EXPECT_EQ(inheritIn(dir / "x.sock", true), 0);
  EXPECT_TRUE(std::filesystem::exists(dir / "x.sock")) << "it is the manager's to remove";
}

TEST(SocketListener, AManagersSocketOfAnotherKindIsRefused) {
  const TemporaryDirectory dir;
  EXPECT_EQ(inheritIn(dir / "x.sock", false), 2);
}

TEST(SocketListener, ADirectoryThatAnotherHasLockedIsSaid) {
  const TemporaryDirectory dir;
  const UniqueFd other(::open(dir.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ASSERT_EQ(::flock(other.get(), LOCK_EX), 0);
  const std::string error = listenError<Failure>(unixAddress(dir / "x.sock"), Directory::Make);
  EXPECT_TRUE(has(error, "cannot lock " + dir.path())) << error;
  EXPECT_TRUE(has(error, "another program has locked it")) << error;
}

}  // namespace
}  // namespace lumsar::test
