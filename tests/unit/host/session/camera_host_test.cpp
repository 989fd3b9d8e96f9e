// CameraHost: an exception on the plug-in's thread ends the cameras, not the process.
#include "session/camera_host.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <future>

#include "unit/host/session/fake_plugin.h"

namespace lumsar::test {
namespace {

using namespace host;
using namespace std::chrono_literals;

TEST(CameraHostTest, AnExceptionEndsTheCamerasAndNotTheProcess) {
  void* handle = dlopen(LUMSAR_FAKE_PLUGIN, RTLD_NOW);
  FakePlugin& fake = *reinterpret_cast<FakePlugin* (*)()>(dlsym(handle, "fakePlugin"))();
  fake.throws = true;
  std::promise<void> refused;
  std::string said;
  Report report(true);
  report.setSink([&](const std::string& line) { said += line + "\n"; });
  asio::io_context loop;
  const auto work = asio::make_work_guard(loop);
  DriverSetup driver;
  driver.ipcLibrary = LUMSAR_IPC_LIBRARY;
  CameraHost camera(loop, report,
                    {.plugin = LUMSAR_FAKE_PLUGIN,
                     .driver = driver,
                     .status = {},
                     .onHandshake = [] { return true; },
                     .onRefused = [&] { refused.set_value(); }});
  camera.run({"list"}, [](bool) { FAIL() << "done"; });
  EXPECT_EQ(refused.get_future().wait_for(30s), std::future_status::ready);
  camera.stop([&] { loop.stop(); });
  loop.run_for(30s);
  EXPECT_TRUE(loop.stopped()) << "the end is still reported";
  EXPECT_NE(said.find("no more cameras: out of luck"), std::string::npos) << said;
  fake.throws = false;
}

}  // namespace
}  // namespace lumsar::test
