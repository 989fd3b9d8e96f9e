// Tests of listener.h: permissions, stale and live sockets, inherited sockets. Test's main thread.
#include "ipc/server/listener.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "support/raw_peer.h"
#include "support/temporary_directory.h"

namespace lumsar::test {
namespace {

using ipc::Listener;

unsigned int modeOf(const std::string& path) {
  struct stat status = {};
  return ::lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
}

std::string errorOf(const std::string& path) {
  try {
    const Listener listener = Listener::at(path);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return {};
}

TEST(ListenerTest, DirectoryAndSocketAreTheUsersOwn) {
  const TemporaryDirectory dir;
  ::umask(0);
  const Listener listener = Listener::at(dir / "lumsar/x.sock");
  EXPECT_EQ(modeOf(dir / "lumsar"), 0700U);
  EXPECT_EQ(modeOf(dir / "lumsar/x.sock"), 0600U);
  EXPECT_TRUE(RawPeer(dir / "lumsar/x.sock").connected());
}

TEST(ListenerTest, ALooseDirectoryIsMadePrivate) {
  const TemporaryDirectory dir;
  ::mkdir((dir / "lumsar").c_str(), 0755);
  const Listener listener = Listener::at(dir / "lumsar/x.sock", Listener::Directory::Own);
  EXPECT_EQ(modeOf(dir / "lumsar"), 0700U);
}

TEST(ListenerTest, ADirectoryThatTheUserChoseStaysAsItIs) {
  const TemporaryDirectory dir;
  ::mkdir((dir / "lumsar").c_str(), 0755);
  ::chmod((dir / "lumsar").c_str(), 0755);
  const Listener listener = Listener::at(dir / "lumsar/x.sock", Listener::Directory::Chosen);
  EXPECT_EQ(modeOf(dir / "lumsar"), 0755U);
}

TEST(ListenerTest, TheFileGoesWithTheListener) {
  const TemporaryDirectory dir;
  { const Listener listener = Listener::at(dir / "x.sock"); }
  EXPECT_FALSE(std::filesystem::exists(dir / "x.sock"));
}

TEST(ListenerTest, ASuccessorsFileStays) {
  const TemporaryDirectory dir;
  {
    const Listener listener = Listener::at(dir / "x.sock");
    std::filesystem::remove(dir / "x.sock");
    const RawListener successor(dir / "x.sock");
  }
  EXPECT_TRUE(std::filesystem::exists(dir / "x.sock"));
}

TEST(ListenerTest, AStaleSocketIsReplaced) {
  const TemporaryDirectory dir;
  { const RawListener dead(dir / "x.sock"); }
  ASSERT_TRUE(std::filesystem::exists(dir / "x.sock"));
  const Listener listener = Listener::at(dir / "x.sock");
  EXPECT_TRUE(RawPeer(dir / "x.sock").connected());
}

TEST(ListenerTest, ALiveSocketIsRefused) {
  const TemporaryDirectory dir;
  const Listener listener = Listener::at(dir / "x.sock");
  const std::string error = errorOf(dir / "x.sock");
  EXPECT_NE(error.find("already running"), std::string::npos) << error;
  EXPECT_NE(error.find("--ipc-channel"), std::string::npos) << error;
  EXPECT_TRUE(RawPeer(dir / "x.sock").connected());
}

TEST(ListenerTest, AFileThatIsNoSocketIsLeftAlone) {
  const TemporaryDirectory dir;
  std::ofstream(dir / "x.sock") << "precious";
  EXPECT_NE(errorOf(dir / "x.sock").find("no socket"), std::string::npos);
  EXPECT_EQ(readFile(dir / "x.sock"), "precious");
}

TEST(ListenerTest, AMissingParentIsSaid) {
  const TemporaryDirectory dir;
  EXPECT_NE(errorOf(dir / "no/such/x.sock").find("cannot make the directory"), std::string::npos);
}

TEST(ListenerTest, NothingIsInheritedWithoutAManager) {
  ::unsetenv("LISTEN_PID");
  EXPECT_FALSE(Listener::inherited().has_value());
  ::setenv("LISTEN_PID", "1", 1);
  ::setenv("LISTEN_FDS", "1", 1);
  EXPECT_FALSE(Listener::inherited().has_value());
}

// In a child process, for descriptor 3 must be free there.
int inheritIn(const std::string& path, bool good) {
  const pid_t child = ::fork();
  if (child != 0) {
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  const RawListener manager(path);
  const RawPeer probe(path);
  const int source = good ? manager.fd() : probe.fd();
  const int copy = ::fcntl(source, F_DUPFD, 64);
  ::dup2(copy, 3);
  ::setenv("LISTEN_PID", std::to_string(::getpid()).c_str(), 1);
  ::setenv("LISTEN_FDS", "1", 1);
  int result = 1;
  try {
    const auto listener = Listener::inherited();
    if (listener && listener->get() == 3 && listener->path() == path &&
        ::getenv("LISTEN_FDS") == nullptr && (::fcntl(3, F_GETFD) & FD_CLOEXEC) != 0) {
      result = 0;
    }
  } catch (const std::runtime_error&) {
    result = 2;
  }
  ::_exit(result);
}

TEST(ListenerTest, TheManagersSocketIsTaken) {
  const TemporaryDirectory dir;
  EXPECT_EQ(inheritIn(dir / "x.sock", true), 0);
  EXPECT_TRUE(std::filesystem::exists(dir / "x.sock")) << "it is the manager's to remove";
}

TEST(ListenerTest, AManagersSocketOfAnotherKindIsRefused) {
  const TemporaryDirectory dir;
  EXPECT_EQ(inheritIn(dir / "x.sock", false), 2);
}

}  // namespace
}  // namespace lumsar::test
