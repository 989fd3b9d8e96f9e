// The command line that all host programs share.
#include "app/host_options.h"

#include <getopt.h>
#include <gtest/gtest.h>

#include <fstream>

#include "transport/scoped_directory.h"

namespace lumsar::host {
namespace {

struct Parsed {
  std::optional<int> exitCode;
  Options options;
};

Parsed parse(std::vector<std::string> words) {
  words.insert(words.begin(), "program");
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  optind = 0;  // getopt begins anew
  const ProgramText text{.name = "program",
                         .synopsis = "",
                         .addressHelp = "",
                         .kind = {},
                         .own = {{"port", "NAME", "a port"}}};
  Parsed parsed;
  parsed.exitCode =
      parseOptions(static_cast<int>(words.size()), arguments.data(), text, parsed.options);
  return parsed;
}

TEST(Options, takesEverything) {
  const Parsed parsed =
      parse({"--kind", "spice",    "--vm",   "unix:/x",   "--vm-id",  "vm-9",  "--channel",
             "c",      "--exec",   "list",   "--exec",    "share 0",  "--for", "1.5s",
             "--wait", "200ms",    "--json", "--verbose", "--plugin", "/p",    "--ipc-library",
             "/i",     "--config", "/c",     "--port",    "p"});
  ASSERT_EQ(parsed.exitCode, std::nullopt);
  const Options& options = parsed.options;
  EXPECT_EQ(options.driver.kind, Kind::Spice);
  EXPECT_EQ(options.vm, "unix:/x");
  EXPECT_EQ(options.driver.vmId, "vm-9");
  EXPECT_EQ(options.driver.channel, "c");
  EXPECT_EQ(options.commands, (std::vector<std::string>{"list", "share 0"}));
  EXPECT_EQ(options.runFor, std::chrono::milliseconds(1500));
  EXPECT_EQ(options.waitFor, std::chrono::milliseconds(200));
  EXPECT_TRUE(options.json);
  EXPECT_TRUE(options.verbose);
  EXPECT_FALSE(options.interactive());
  EXPECT_EQ(options.plugin, "/p");
  EXPECT_EQ(options.driver.ipcLibrary, "/i");
  EXPECT_EQ(options.driver.configFile, "/c");
  EXPECT_EQ(options.own.at("port"), "p");
}

TEST(Options, anRdpHostHasAFixedConfiguration) {
  EXPECT_EQ(parse({"unix:/x", "--kind", "rdp"}).options.driver.kind, Kind::Rdp);
  EXPECT_EQ(parse({"unix:/x", "--kind", "rdp"}).exitCode, std::nullopt);
  EXPECT_EQ(parse({"unix:/x", "--kind", "rdp", "--channel", "c"}).exitCode, 2);
  EXPECT_EQ(parse({"unix:/x", "--kind", "rdp", "--config", "/c"}).exitCode, 2);
}

TEST(Options, takesTheAddressAsTheOneArgumentAndDefaults) {
  const Parsed parsed = parse({"unix:/x"});
  ASSERT_EQ(parsed.exitCode, std::nullopt);
  EXPECT_EQ(parsed.options.vm, "unix:/x");
  EXPECT_EQ(parsed.options.driver.kind, Kind::Spice);
  EXPECT_EQ(parsed.options.driver.channel, "lumsar");
  EXPECT_TRUE(parsed.options.interactive());
}

TEST(Options, takesTimesInTheirUnits) {
  const auto time = [](const char* text) {
    return parse({"--for", text, "unix:/x"}).options.runFor;
  };
  EXPECT_EQ(time("250ms"), std::chrono::milliseconds(250));
  EXPECT_EQ(time("10"), std::chrono::seconds(10));
  EXPECT_EQ(time("10s"), std::chrono::seconds(10));
  EXPECT_EQ(time("2.5m"), std::chrono::seconds(150));
  EXPECT_EQ(time("8h"), std::chrono::hours(8));
}

TEST(Options, refusesMistakesWithTwo) {
  EXPECT_EQ(parse({}).exitCode, 2);
  EXPECT_EQ(parse({"unix:/x", "unix:/y"}).exitCode, 2);
  EXPECT_EQ(parse({"--kind", "vnc", "unix:/x"}).exitCode, 2);
  EXPECT_EQ(parse({"--for", "soon", "unix:/x"}).exitCode, 2);
  EXPECT_EQ(parse({"--for", "1e9h", "unix:/x"}).exitCode, 2);
  EXPECT_EQ(parse({"--for", "nan", "unix:/x"}).exitCode, 2);
  EXPECT_EQ(parse({"--wait", "1day", "unix:/x"}).exitCode, 2);
  EXPECT_EQ(parse({"--wait", "-1s", "unix:/x"}).exitCode, 2);
  EXPECT_EQ(parse({"--unknown", "unix:/x"}).exitCode, 2);
  EXPECT_EQ(parse({"--vm"}).exitCode, 2);
}

TEST(Options, helpAndVersionEndWellAtOnce) {
  EXPECT_EQ(parse({"--help"}).exitCode, 0);
  EXPECT_EQ(parse({"--version"}).exitCode, 0);
}

struct Libraries {
  void add(const std::string& file) const {
    std::filesystem::create_directories((root.path() / file).parent_path());
    std::ofstream(root.path() / file) << "a library";
  }
  std::string path(const std::string& file) const { return (root.path() / file).string(); }

  TemporaryDirectory root;
};

TEST(Options, findsTheIpcLibraryOfTheChosenPlugInFirst) {
  const Libraries libraries;
  libraries.add("chosen/liblumsar.so.1");
  libraries.add("chosen/lumsar/libvdi_ipc.so");
  libraries.add("program/lib/libvdi_ipc.so");
  const auto find = [&](const char* plugin) {
    return findIpcLibrary(plugin, libraries.path("program/bin"));
  };
  EXPECT_EQ(find(libraries.path("chosen/liblumsar.so.1").c_str()),
            libraries.path("chosen/lumsar/libvdi_ipc.so"));
  libraries.add("program/bin/mark");
  EXPECT_EQ(find("liblumsar.so.1"), libraries.path("program/lib/libvdi_ipc.so"));
}

TEST(Options, findsThePlugInInADirectoryOfItsOwn) {
  const Libraries libraries;
  libraries.add("program/bin/mark");
  libraries.add("program/lib/lumsar/liblumsar.so.1");
  EXPECT_EQ(findPlugin(libraries.path("program/bin")),
            libraries.path("program/lib/lumsar/liblumsar.so.1"));
}

TEST(Options, takesNoIpcLibraryFromTheWorkingDirectory) {
  const Libraries libraries;
  libraries.add("libvdi_ipc.so");
  libraries.add("program/bin/mark");
  const WorkingDirectory inside(libraries.root.path());
  try {
    findIpcLibrary("liblumsar.so.1", libraries.path("program/bin"));
    FAIL() << "found one";
  } catch (const std::runtime_error& error) {
    EXPECT_NE(std::string(error.what()).find("program/lib/lumsar"), std::string::npos);
    EXPECT_NE(std::string(error.what()).find("--ipc-library"), std::string::npos);
  }
}

}  // namespace
}  // namespace lumsar::host
