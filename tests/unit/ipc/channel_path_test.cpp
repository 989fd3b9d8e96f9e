// Tests of channel_path.h: names, paths and their errors. Test's main thread.
#include "ipc/channel_path.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/net/address.h"

#include "lumsar/ipc_transport.h"

namespace lumsar::test {
namespace {

using ipc::channelPath;

TEST(ChannelPath, ANameLiesInTheRuntimeDirectory) {
  ::setenv("XDG_RUNTIME_DIR", "/run/user/77", 1);
  EXPECT_EQ(channelPath("lumsar").path, "/run/user/77/lumsar/lumsar.sock");
  EXPECT_EQ(channelPath("lumsar").error, 0);
  EXPECT_TRUE(channelPath("lumsar").fromName);
}

TEST(ChannelPath, AnAbsolutePathIsUsedAsItIs) {
  ::unsetenv("XDG_RUNTIME_DIR");
  EXPECT_EQ(channelPath("/tmp/x").path, "/tmp/x");
  EXPECT_FALSE(channelPath("/tmp/lumsar/x").fromName);
}

TEST(ChannelPath, NoNameNoPath) {
  for (const char* name : {static_cast<const char*>(nullptr), "", "a/b", "../x"}) {
    EXPECT_EQ(channelPath(name).error, IPC_ERROR_PARAMETER);
    EXPECT_TRUE(channelPath(name).path.empty());
  }
}

TEST(ChannelPath, WithoutRuntimeDirectoryTheUsualOneIsTaken) {
  ::unsetenv("XDG_RUNTIME_DIR");
  const std::string usual = "/run/user/" + std::to_string(::geteuid());
  struct stat status = {};
  if (::stat(usual.c_str(), &status) == 0) {
    EXPECT_EQ(channelPath("n").path, usual + "/lumsar/n.sock");
  } else {
    EXPECT_EQ(channelPath("n").error, IPC_ERROR_NO_RUNTIME_DIR);
  }
}

TEST(ChannelPath, ARelativeRuntimeDirectoryIsNone) {
  ::setenv("XDG_RUNTIME_DIR", "relative", 1);
  EXPECT_FALSE(channelPath("n").path.starts_with("relative"));
}

TEST(ChannelPath, AtMost107Bytes) {
  const std::string longest = "/" + std::string(kIpcMaxPath - 1, 'x');
  EXPECT_EQ(channelPath(longest.c_str()).error, 0);
  const base::SocketAddress address = base::toSockaddr({longest, {}, 0});
  EXPECT_STREQ(address.get()->sa_data, longest.c_str());
  EXPECT_EQ(channelPath((longest + "x").c_str()).error, IPC_ERROR_PATH_TOO_LONG);
}

TEST(ChannelPath, EveryErrorHasAText) {
  for (int error = IPC_ERROR_PARAMETER; error <= IPC_ERROR_DISCONNECTED; ++error) {
    EXPECT_NE(ipcErrorText(error), nullptr) << error;
  }
  EXPECT_NE(ipcErrorText(8), nullptr);
  EXPECT_EQ(ipcErrorText(0), nullptr);
  EXPECT_EQ(ipcErrorText(IPC_ERROR_DISCONNECTED + 1), nullptr);
}

TEST(ChannelPath, NoErrorIsAStatusOfThePlugIn) {
  for (int status : {0, 1, 2, 5, 7, 8, 11, 12, 14, 15, 16, 17, 30, 31, 34, 35, 45}) {
    EXPECT_TRUE(status < IPC_ERROR_PARAMETER || status > IPC_ERROR_DISCONNECTED);
  }
}

}  // namespace
}  // namespace lumsar::test
