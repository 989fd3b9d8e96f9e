// The command line that all host programs share.
#include "app/host_options.h"

#include <gtest/gtest.h>

#include "base/errors.h"
#include "driver/find_libraries.h"
#include "driver/working_directory.h"
#include "support/temporary_directory.h"
#include "support/text.h"

namespace lumsar::test {
namespace {

using namespace host;

std::optional<Options> parse(std::vector<std::string> words, std::string* port = nullptr) {
  words.insert(words.begin(), "program");
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  std::string ignored;
  return parseOptions(static_cast<int>(words.size()), arguments.data(),
                      {.program = "program",
                       .usage = "",
                       .example = "",
                       .protocol = {},
                       .addOwn = [&](base::CommandLine& line) {
                         line.option("--port NAME", port != nullptr ? *port : ignored, "a port");
                       }});
}

TEST(Options, takesEverything) {
  std::string port;
  const auto options = parse(
      {"--protocol", "spice",    "--vm",   "unix:/x",   "--vm-id",  "vm-9",       "--ipc-channel",
       "c",          "--exec",   "list",   "--exec",    "share 0",  "--duration", "1.5s",
       "--timeout",  "200ms",    "--json", "--verbose", "--plugin", "/p",         "--ipc-library",
       "/i",         "--config", "/c",     "--port",    "p"},
      &port);
  ASSERT_TRUE(options);
  EXPECT_EQ(options->driver.protocol, Protocol::Spice);
  EXPECT_EQ(options->vm, "unix:/x");
  EXPECT_EQ(options->driver.vmId, "vm-9");
  EXPECT_EQ(options->driver.ipcChannel, "c");
  EXPECT_EQ(options->commands, (std::vector<std::string>{"list", "share 0"}));
  EXPECT_EQ(options->duration, std::chrono::milliseconds(1500));
  EXPECT_EQ(options->timeout, std::chrono::milliseconds(200));
  EXPECT_TRUE(options->json);
  EXPECT_TRUE(options->verbose);
  EXPECT_FALSE(options->interactive());
  EXPECT_EQ(options->plugin, "/p");
  EXPECT_EQ(options->driver.ipcLibrary, "/i");
  EXPECT_EQ(options->driver.configFile, "/c");
  EXPECT_EQ(port, "p");
}

TEST(Options, anRdpHostHasAFixedConfiguration) {
  EXPECT_EQ(parse({"unix:/x", "--protocol", "rdp"})->driver.protocol, Protocol::Rdp);
  EXPECT_THROW(parse({"unix:/x", "--protocol", "rdp", "--ipc-channel", "c"}), base::UsageError);
  EXPECT_THROW(parse({"unix:/x", "--protocol", "rdp", "--config", "/c"}), base::UsageError);
}

TEST(Options, takesTheAddressAsTheOneArgumentAndDefaults) {
  const auto options = parse({"unix:/x"});
  ASSERT_TRUE(options);
  EXPECT_EQ(options->vm, "unix:/x");
  EXPECT_EQ(options->driver.protocol, Protocol::Spice);
  EXPECT_EQ(options->driver.ipcChannel, "lumsar");
  EXPECT_TRUE(options->interactive());
}

TEST(Options, refusesMistakes) {
  const std::vector<std::vector<std::string>> mistakes{{},
                                                       {"unix:/x", "unix:/y"},
                                                       {"--vm", "unix:/x", "unix:/y"},
                                                       {"--protocol", "vnc", "unix:/x"},
                                                       {"--duration", "soon", "unix:/x"},
                                                       {"--duration", "1e9h", "unix:/x"},
                                                       {"--duration", "nan", "unix:/x"},
                                                       {"--timeout", "1day", "unix:/x"},
                                                       {"--timeout", "-1s", "unix:/x"},
                                                       {"--unknown", "unix:/x"},
                                                       {"--vm-id", "", "unix:/x"},
                                                       {"--vm-id=", "unix:/x"},
                                                       {"--vm", ""},
                                                       {"--vm"}};
  for (const auto& words : mistakes) {
    EXPECT_THROW(parse(words), base::UsageError) << testing::PrintToString(words);
  }
}

TEST(Options, helpAndVersionEndWellAtOnce) {
  EXPECT_FALSE(parse({"--help"}));
  EXPECT_FALSE(parse({"--version"}));
}

struct Libraries {
  void add(const std::string& file) const {
    std::filesystem::create_directories(std::filesystem::path(path(file)).parent_path());
    writeFile(path(file), "a library");
  }
  std::string path(const std::string& file) const { return root / file; }

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

// The plug-in loads it by its name, from the directory that it is given.
TEST(Options, leavesALinkToTheIpcLibraryAsItIs) {
  const Libraries libraries;
  libraries.add("elsewhere/other.so");
  libraries.add("program/bin/mark");
  const std::string link = libraries.path("program/bin/libvdi_ipc.so");
  std::filesystem::create_symlink(libraries.path("elsewhere/other.so"), link);
  EXPECT_EQ(findIpcLibrary("liblumsar.so.1", libraries.path("program/bin")), link);
}

TEST(Options, findsThePlugInInADirectoryOfItsOwn) {
  const Libraries libraries;
  libraries.add("program/bin/mark");
  libraries.add("program/lib/lumsar/liblumsar.so.1");
  EXPECT_EQ(findPlugin(libraries.path("program/bin")),
            libraries.path("program/lib/lumsar/liblumsar.so.1"));
}

TEST(Options, namesTheLoadersReasonForAnIpcLibraryThatCannotBeLoaded) {
  const TemporaryDirectory directory;
  const std::string path = directory / "libvdi_ipc.so";
  writeFile(path, "not a library");
  const auto refusal = [](const std::string& library) {
    return errorOf([&] { checkIpcLibrary(library); });
  };
  EXPECT_EQ(refusal(LUMSAR_IPC_LIBRARY), "no error");
  EXPECT_TRUE(has(refusal(path), "cannot load the IPC library: " + path + ": file too short"))
      << refusal(path);
  EXPECT_TRUE(has(refusal(LUMSAR_FAKE_PLUGIN), "undefined symbol: VDI_CreateIpcClient"));
  EXPECT_TRUE(has(refusal(path), "--ipc-library PATH"));
}

TEST(Options, takesNoIpcLibraryFromTheWorkingDirectory) {
  const Libraries libraries;
  libraries.add("libvdi_ipc.so");
  libraries.add("program/bin/mark");
  const WorkingDirectory inside(libraries.root.path());
  const std::string error =
      errorOf([&] { findIpcLibrary("liblumsar.so.1", libraries.path("program/bin")); });
  EXPECT_TRUE(has(error, "program/lib/lumsar")) << error;
  EXPECT_TRUE(has(error, "--ipc-library")) << error;
}

}  // namespace
}  // namespace lumsar::test
