// The IPC settings that a host's configuration gives: channel name and library directory.
// Drives the built plug-in through Init; the directory shows in the path that is loaded.
// Most of these configurations name no library, so Init fails; only the settings are compared.
#include <algorithm>

#include "support/plugin/plugin_test.h"

namespace lumsar::test {
namespace {

class IpcSettings : public PluginTest {
 protected:
  // The lines from the parser's first to the one that names both settings.
  Lines settingsOf(const std::string& config) {
    spiceInit(config);
    const Lines lines = log.take();
    const auto begin = std::ranges::find(lines, info("[ParseConfigJson] Enter!"));
    const auto end = std::find_if(begin, lines.end(), [](const std::string& line) {
      return line.starts_with("info: Use ipc: ");
    });
    ipc.take();
    if (end == lines.end()) return {"no settings"};
    return {begin, end + 1};
  }

  static Lines begin(const std::string& name) {
    return {info("[ParseConfigJson] Enter!"), info("Use ipc channel name: " + inQuotes(name))};
  }
  std::string app = applicationDir();
};

using LooseIpcSettings = Loose<IpcSettings>;

TEST_F(IpcSettings, NameAndPathAreTaken) {
  EXPECT_EQ(settingsOf(R"({"ipc_name":"svc","relative_path":"./ipc"})"),
            concat({settingsLines("svc", "./ipc", app + "/ipc"), {useLine("svc", app + "/ipc")}}));
}

struct PathCase {
  std::string given;
  std::string appended;
};

class RelativePath : public IpcSettings, public testing::WithParamInterface<PathCase> {};

TEST_P(RelativePath, IsRewrittenAndAppended) {
  const auto& [given, appended] = GetParam();
  EXPECT_EQ(
      settingsOf(R"({"ipc_name":"svc","relative_path":")" + given + R"("})"),
      concat({settingsLines("svc", given, app + appended), {useLine("svc", app + appended)}}));
}

INSTANTIATE_TEST_SUITE_P(Texts, RelativePath,
                         testing::Values(PathCase{"./ipc", "/ipc"}, PathCase{"lib", "lib"},
                                         PathCase{"/lib", "/lib"}, PathCase{"../lib", "./lib"},
                                         PathCase{"./a/./b", "/a//b"}, PathCase{"./", "/"},
                                         PathCase{".././x", ".//x"}, PathCase{".../x", "../x"},
                                         PathCase{"./ipc/", "/ipc/"}, PathCase{".", "."},
                                         PathCase{"./é", "/é"}, PathCase{" ", " "}));

TEST_F(IpcSettings, WithoutOneItemThePathIsNotApplied) {
  const auto expectNoName = [this](const std::string& config, const std::string& why) {
    EXPECT_EQ(settingsOf(config),
              (Lines{info("[ParseConfigJson] Enter!"), warning(why), useLine("lumsar", app)}))
        << config;
    plugin.DeInit();
    forget();
  };
  expectNoName("not JSON", "[ParseConfigJson][41] Json command is NULL!");
  for (const char* config :
       {R"({"relative_path":"./ipc"})", "{}", "[]", "[1,2]", R"([{"ipc_name":"svc"}])"}) {
    expectNoName(config, "[ParseConfigJson][68] Cannot find item[ipc_name]!");
  }
  EXPECT_EQ(settingsOf(R"({"ipc_name":"svc"})"),
            concat({begin("svc"),
                    {warning("[ParseConfigJson][89] Cannot find item[relative_path]!"),
                     useLine("svc", app)}}));
}

const Lines kBothNull = {info("[ParseConfigJson] Enter!"),
                         warning("[ParseConfigJson][62] Get [ipc_name] value is NULL!"),
                         info(R"(Use ipc channel name: "lumsar")"),
                         info(R"([ParseConfigJson] path: "")"),
                         warning("[ParseConfigJson][83] Get [relative_path] value is NULL!")};

class EmptyValues : public Loose<IpcSettings>, public testing::WithParamInterface<std::string> {};

TEST_P(EmptyValues, KeepThePresets) {
  EXPECT_EQ(settingsOf(R"({"ipc_name":)" + GetParam() + R"(,"relative_path":)" + GetParam() + "}"),
            concat({kBothNull,
                    {info("Use ipc lib path: " + inQuotes(app)), info("[ParseConfigJson] Leave!"),
                     useLine("lumsar", app)}}));
}

INSTANTIATE_TEST_SUITE_P(Values, EmptyValues,
                         testing::Values(R"("")", "5", "true", "null", "{}", R"(["svc"])"));

TEST_F(LooseIpcSettings, NumberAsNameKeepsThePresetAndGoesOn) {
  EXPECT_EQ(settingsOf(R"({"ipc_name":5,"relative_path":"./ipc"})"),
            concat({{info("[ParseConfigJson] Enter!"),
                     warning("[ParseConfigJson][62] Get [ipc_name] value is NULL!"),
                     info(R"(Use ipc channel name: "lumsar")"),
                     info(R"([ParseConfigJson] path: "./ipc")"),
                     info("Use ipc lib path: " + inQuotes(app + "/ipc")),
                     info("[ParseConfigJson] Leave!"), useLine("lumsar", app + "/ipc")}}));
}

TEST_F(LooseIpcSettings, NullNameWithoutPath) {
  EXPECT_EQ(settingsOf(R"({"ipc_name":null})"),
            (Lines{info("[ParseConfigJson] Enter!"),
                   warning("[ParseConfigJson][62] Get [ipc_name] value is NULL!"),
                   info(R"(Use ipc channel name: "lumsar")"),
                   warning("[ParseConfigJson][89] Cannot find item[relative_path]!"),
                   useLine("lumsar", app)}));
}

TEST_F(LooseIpcSettings, KeysAreCaseSensitive) {
  EXPECT_EQ(settingsOf(R"({"IPC_NAME":"svc","Relative_Path":"./ipc"})").at(1),
            warning("[ParseConfigJson][68] Cannot find item[ipc_name]!"));
}

TEST_F(LooseIpcSettings, TheNameReachesTheLibraryAsUtf8) {
  EXPECT_EQ(spiceInit(R"({"ipc_name":"camera é","relative_path":"./ipc"})"), 0);
  EXPECT_EQ(ipc.take(), (Lines{"Create vm-7", "IsConnected", "Connect camera é"}));
}

TEST_F(LooseIpcSettings, EachInitStartsFromThePresets) {
  startSpice(R"({"ipc_name":"svc","relative_path":"./ipc"})");
  plugin.DeInit();
  forget();
  EXPECT_EQ(spiceInit(R"({"quality":"9"})"), 0);
  EXPECT_EQ(ipc.take(), (Lines{"Create vm-7", "IsConnected", "Connect lumsar"}));
}

TEST_F(LooseIpcSettings, RdpIgnoresThePath) {
  EXPECT_EQ(rdpInit(), 0);
  const Lines lines = log.take();
  EXPECT_EQ(std::ranges::count(lines, useLine("lumsar", "./Device Redirect")), 1);
  EXPECT_EQ(std::ranges::count(lines, info(R"(Use ipc lib path: "")")), 1);
}

}  // namespace
}  // namespace lumsar::test
