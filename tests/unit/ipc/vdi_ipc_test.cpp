// Tests of libvdi_ipc.so as the plug-in meets it: by dlopen, against a service in another process.
#include "lumsar/vdi_ipc.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>

#include "support/process.h"
#include "support/raw_peer.h"
#include "support/resources.h"
#include "support/temporary_directory.h"
#include "unit/ipc/recorder.h"
#include "unit/ipc/vdi_library.h"

namespace lumsar::test {
namespace {

class VdiIpcTest : public ::testing::Test {
 protected:
  std::unique_ptr<Process> startService(const std::string& user = {}) {
    Process::Words command{ECHO_SERVICE, path};
    if (!user.empty()) command.push_back(user);
    auto service = std::make_unique<Process>(command);
    EXPECT_TRUE(service->says("ready")) << service->output();
    return service;
  }
  static bool mapped() {
    return readFile("/proc/self/maps").find("libvdi_ipc") != std::string::npos;
  }

  TemporaryDirectory dir;
  std::string path = dir / "s";
  Recorder recorder;
};

TEST_F(VdiIpcTest, ExportsTheEightFunctionsAndNothingElse) {
  const std::string command =
      "nm -D --defined-only '" VDI_IPC_LIBRARY "' | awk '{print $3}' | sort";
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(command.c_str(), "r"), ::pclose);
  std::string symbols;
  char line[256];
  while (std::fgets(line, sizeof line, pipe.get()) != nullptr) symbols += line;
  EXPECT_EQ(symbols,
            "VDI_AsyncConnectIpcClient\nVDI_ConnectIpcClient\nVDI_CreateIpcClient\n"
            "VDI_DestroyIpcClient\nVDI_DisconnectIpcClient\nVDI_IpcClientSendData\n"
            "VDI_IpcClientSyncCall\nVDI_IsIpcClientConnected\n");
}

TEST_F(VdiIpcTest, NullParametersAreErrors) {
  const VdiLibrary vdi;
  unsigned int size = 0;
  const Bytes whole = message(2);
  const int length = static_cast<int>(whole.size());
  EXPECT_EQ(vdi.create(nullptr), nullptr);
  vdi.destroy(nullptr);
  EXPECT_EQ(vdi.connect(nullptr, "x"), IPC_ERROR_PARAMETER);
  EXPECT_EQ(vdi.asyncConnect(nullptr, "x"), IPC_ERROR_PARAMETER);
  EXPECT_EQ(vdi.disconnect(nullptr), IPC_ERROR_PARAMETER);
  EXPECT_FALSE(vdi.isConnected(nullptr));
  EXPECT_EQ(vdi.send(nullptr, whole.data(), length), IPC_ERROR_PARAMETER);
  EXPECT_EQ(vdi.call(nullptr, whole.data(), 32, nullptr, &size), IPC_ERROR_PARAMETER);
  void* client = vdi.create(recorder.params());
  EXPECT_EQ(vdi.connect(client, nullptr), IPC_ERROR_PARAMETER);
  EXPECT_EQ(vdi.asyncConnect(client, ""), IPC_ERROR_PARAMETER);
  EXPECT_EQ(vdi.send(client, nullptr, 32), IPC_ERROR_PARAMETER);
  EXPECT_EQ(vdi.send(client, whole.data(), 0), IPC_ERROR_PARAMETER);
  EXPECT_EQ(vdi.send(client, whole.data(), length), IPC_ERROR_NOT_CONNECTED);
  EXPECT_EQ(vdi.call(client, nullptr, 32, nullptr, &size), IPC_ERROR_PARAMETER);
  EXPECT_EQ(vdi.call(client, whole.data(), 32, nullptr, nullptr), IPC_ERROR_PARAMETER);
  EXPECT_EQ(vdi.disconnect(client), IPC_ERROR_NOT_CONNECTED);
  vdi.destroy(client);
}

TEST_F(VdiIpcTest, TheWholeRound) {
  const auto service = startService();
  const VdiLibrary vdi;
  void* client = vdi.create(recorder.params());
  ASSERT_EQ(vdi.connect(client, path.c_str()), 0);
  EXPECT_TRUE(vdi.isConnected(client));
  EXPECT_TRUE(recorder.awaitConnect());
  const Bytes data = message(IPC_MSG_DATA, "data");
  EXPECT_EQ(vdi.send(client, data.data(), static_cast<int>(data.size())), 0);
  ASSERT_TRUE(recorder.awaitMessages(1));
  EXPECT_EQ(recorder.messages().front(), data);
  Bytes reply(200);
  unsigned int size = 200;
  const Bytes request = message(IPC_MSG_CAMERA_LIST);
  EXPECT_EQ(vdi.call(client, request.data(), kHeaderSize, reply.data(), &size), 0);
  EXPECT_EQ(size, kHeaderSize);
  EXPECT_EQ(vdi.disconnect(client), 0);
  EXPECT_FALSE(vdi.isConnected(client));
  vdi.destroy(client);
}

TEST_F(VdiIpcTest, AChannelNameLeadsToTheRuntimeDirectory) {
  ::setenv("XDG_RUNTIME_DIR", dir.path().c_str(), 1);
  path = dir / "lumsar/cams.sock";
  const auto service = startService();
  const VdiLibrary vdi;
  void* client = vdi.create(recorder.params());
  EXPECT_EQ(vdi.connect(client, "cams"), 0);
  EXPECT_EQ(vdi.asyncConnect(client, "cams"), IPC_ERROR_ALREADY_CONNECTED);
  vdi.destroy(client);
}

TEST_F(VdiIpcTest, AKilledServiceIsSeenAtOnceAndANewOneIsReached) {
  const VdiLibrary vdi;
  void* client = vdi.create(recorder.params());
  for (std::size_t round = 1; round <= 3; ++round) {
    const auto service = startService();
    ASSERT_EQ(vdi.connect(client, path.c_str()), 0);
    const auto begin = std::chrono::steady_clock::now();
    service->signal(SIGKILL);
    ASSERT_TRUE(recorder.awaitClose(round));
    EXPECT_LT(recorder.closeTime() - begin, kAtOnce);
    EXPECT_EQ(recorder.closes().back(), IPC_ERROR_SERVICE_GONE);
    EXPECT_FALSE(vdi.isConnected(client));
  }
  EXPECT_EQ(vdi.connect(client, path.c_str()), IPC_ERROR_NO_SERVICE);
  vdi.destroy(client);
}

TEST_F(VdiIpcTest, TwoHundredConnectionsOneAfterAnother) {
  const auto service = startService();
  const VdiLibrary vdi;
  void* client = vdi.create(recorder.params());
  const Bytes request = message(IPC_MSG_CAMERA_LIST);
  for (int round = 0; round < 200; ++round) {
    ASSERT_EQ(vdi.connect(client, path.c_str()), 0) << round;
    Bytes reply(64);
    unsigned int size = 64;
    ASSERT_EQ(vdi.call(client, request.data(), kHeaderSize, reply.data(), &size), 0) << round;
    ASSERT_EQ(vdi.disconnect(client), 0) << round;
    ASSERT_LT(threads(), 12U) << "ended threads are collected";
    ASSERT_LT(openDescriptors(), 40U);
  }
  vdi.destroy(client);
  EXPECT_TRUE(recorder.closes().empty());
}

TEST_F(VdiIpcTest, NothingStaysBehind) {
  const auto service = startService();
  const std::size_t threadsBefore = threadsAtRest();
  const std::size_t descriptorsBefore = openDescriptors();
  for (int round = 0; round < 3; ++round) {
    {
      Recorder own;
      const VdiLibrary vdi;
      EXPECT_TRUE(mapped());
      void* client = vdi.create(own.params());
      void* second = vdi.create(own.params());
      EXPECT_EQ(vdi.connect(client, path.c_str()), 0);
      EXPECT_EQ(vdi.asyncConnect(second, path.c_str()), 0);
      EXPECT_TRUE(own.awaitConnect(2));
      vdi.destroy(client);
      vdi.destroy(second);
    }
    EXPECT_FALSE(mapped()) << "round " << round;
    EXPECT_TRUE(eventually([&] { return threads() == threadsBefore; }));
    EXPECT_EQ(openDescriptors(), descriptorsBefore);
  }
}

TEST_F(VdiIpcTest, DestroyedInItsOwnCallbackTheLibraryStays) {
  const std::size_t before = threadsAtRest();
  auto vdi = std::make_unique<VdiLibrary>();
  void* client = vdi->create(recorder.params());
  RawListener service(path);
  std::thread welcoming([&] { service.welcome(); });
  std::atomic<bool> done = false;
  recorder.duringClose = [&](int) {
    vdi->destroy(client);
    vdi.reset();
    done = true;
  };
  ASSERT_EQ(vdi->connect(client, path.c_str()), 0);
  welcoming.join();
  EXPECT_TRUE(eventually([&] { return done.load(); }));
  EXPECT_TRUE(eventually([&] { return threads() == before; }));
  EXPECT_TRUE(mapped()) << "its thread had to return through it";
}

// Another user's processes need root to be made.
class OtherUserTest : public VdiIpcTest {
 protected:
  static constexpr int kNobody = 65534;
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root, to start a process of another user";
    ::chmod(dir.path().c_str(), 0777);
  }
};

TEST_F(OtherUserTest, AServiceOfAnotherUserIsRefused) {
  const auto service = startService(std::to_string(kNobody));
  const VdiLibrary vdi;
  void* client = vdi.create(recorder.params());
  EXPECT_EQ(vdi.connect(client, path.c_str()), IPC_ERROR_OTHER_USER);
  vdi.destroy(client);
}

TEST_F(OtherUserTest, AClientOfAnotherUserIsTurnedAway) {
  const auto service = startService();
  ::chmod(path.c_str(), 0777);
  const pid_t child = ::fork();
  if (child == 0) {
    if (::setuid(kNobody) != 0) ::_exit(99);
    const RawPeer peer(path);
    peer.send(message(IPC_MSG_CONNECT_REQUEST, "intruder"));
    const Bytes answer = peer.receive();
    const bool refused = answer.size() == kHeaderSize &&
                         readHeader(answer.data()).param == std::uint32_t{IPC_ERROR_OTHER_USER};
    ::_exit(refused && peer.ended() ? 0 : 1);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(service->says("another user"));
}

}  // namespace
}  // namespace lumsar::test
