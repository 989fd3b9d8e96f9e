// A host without an application object: the plug-in works, Qt itself says that a SPICE host has no
// application directory.
// A program of its own, whose main() makes no QCoreApplication.
#include <filesystem>

#include "support/plugin/plugin_test.h"

namespace lumsar_test {
namespace {

using BareHost = PluginTest;
using LooseBareHost = Loose<BareHost>;

const std::string kQtLine = warning(
    "QCoreApplication::applicationDirPath: Please instantiate the QApplication object first");

TEST_F(LooseBareHost, SpiceHostMustGiveAFullPath) {
  const std::string dir = std::filesystem::current_path().string() + "/ipc";
  const std::string config = R"({"ipc_name":"svc","relative_path":")" + dir + R"("})";
  EXPECT_EQ(spiceInit(config), 0);
  EXPECT_EQ(withoutSourceLines(log.take()),
            concat({{kQtLine, info("[Init][#] Enter!"), info("[Init][#] vm id[vm-7]"),
                     info("[Init][#] config json[" + config + "]")},
                    settingsLines("svc", dir, dir),
                    {useLine("svc", dir)},
                    objectInitLines(dir),
                    policyLines(config, Policy{}),
                    {info(R"(Connect: Try to connect ipc: "svc")"),
                     info(R"(Connect to  "svc"  SUCCESS!)"), info("Init: Leave!")}}));
}

TEST_F(BareHost, EmptyDirectoryIsTheRoot) {
  EXPECT_EQ(spiceInit(""), 1);
  const Lines lines = log.take();
  const std::string path = "/libvdi_ipc.so";
  EXPECT_EQ(std::count(lines.begin(), lines.end(), info("lib path: " + inQuotes(path))), 1);
  EXPECT_EQ(std::count(lines.begin(), lines.end(),
                       warning("LoadControllerLibrary: >>>>load lib[" + path + "] failed!<<<<\n")),
            1);
  EXPECT_EQ(std::count(lines.begin(), lines.end(),
                       critical(R"(LoadControllerLibrary for lib: "" failed!)")),
            1);
}

TEST_F(LooseBareHost, RdpHostNeedsNone) {
  EXPECT_EQ(rdpInit(), 0);
  const Lines lines = log.take();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), kQtLine), 0);
}

TEST_F(LooseBareHost, CommandsWork) {
  startRdp();
  EXPECT_EQ(ctrl(R"({"command":"sharetcp","deviceId":"1","remoteIp":"2","remotePort":"3"})"), 0);
  const std::vector<IpcCall> calls = ipc.takeCalls();
  ASSERT_EQ(calls.size(), 3U);
  EXPECT_GE(calls[2].time - calls[1].time, std::chrono::milliseconds(200));
}

}  // namespace
}  // namespace lumsar_test
