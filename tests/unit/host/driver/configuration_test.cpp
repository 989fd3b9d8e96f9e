// What a host says of a configuration file that the plug-in would misread silently.
#include "driver/configuration.h"

#include <gtest/gtest.h>

#include "json/json.h"
#include "support/process.h"
#include "support/temporary_directory.h"
#include "support/text.h"

namespace lumsar::test {
namespace {

std::vector<std::string> warnings(const char* text) {
  return host::configurationWarnings(json::readObject(text).object);
}
// The only one.
std::string warning(const char* text) {
  const auto all = warnings(text);
  EXPECT_EQ(all.size(), 1U) << text;
  return all.empty() ? "" : all[0];
}

TEST(ConfigurationTest, WhatIsReadPassesSilently) {
  EXPECT_TRUE(warnings(R"({"ipc_name": "a", "relative_path": "", "frame_interval": "0",
                           "max_width": "640", "quality": "70", "encode_type": "MJPG",
                           "codec": "AUTO", "enable_FRC": "ON"})")
                  .empty());
}

TEST(ConfigurationTest, AnUnknownKeyIsNamedWithTheNearest) {
  EXPECT_EQ(warning(R"({"qualty": "70"})"),
            R"(the configuration's key "qualty" is not known; did you mean "quality"?)");
  for (const char* text : {R"({"cameraQualty": "70"})", R"({"Quality": "70"})"}) {
    EXPECT_TRUE(has(warning(text), R"(did you mean "quality"?)")) << text;
  }
  EXPECT_TRUE(has(warning(R"({"encode_FRC": "ON"})"), R"(did you mean "enable_FRC"?)"));
  EXPECT_TRUE(has(warning(R"({"maxWidth": "9"})"), R"(did you mean "max_width"?)"));
}

TEST(ConfigurationTest, AKeyLikeNoneIsNamedWithAll) {
  const std::string said = warning(R"({"colour": "blue"})");
  EXPECT_TRUE(has(said, R"("colour" is not known; expected ipc_name, relative_path, )")) << said;
}

TEST(ConfigurationTest, AValueThatIsNoTextIsNamed) {
  EXPECT_EQ(warning(R"({"quality": 70})"),
            R"(the configuration's "quality" is not a text, so it counts as 0; write "70")");
  EXPECT_EQ(warning(R"({"codec": 7})"),
            R"(the configuration's "codec" is not a text, so it counts as empty; write "7")");
  EXPECT_TRUE(has(warning(R"({"enable_FRC": true})"), R"("enable_FRC" is not a text)"));
}

TEST(ConfigurationTest, ATextThatIsNoNumberIsNamedWithWhatIsRead) {
  EXPECT_EQ(warning(R"({"quality": "70 %"})"),
            R"(the configuration's "quality" is "70 %", which is not a whole number, so it )"
            R"(counts as 0)");
  for (const char* number : {"", "0.5", "99999999999", "fast"}) {
    const std::string text = std::string(R"({"frame_interval": ")") + number + "\"}";
    EXPECT_TRUE(has(warning(text.c_str()), "so it counts as 0")) << number;
  }
  EXPECT_TRUE(has(warning(R"({"max_width": "640*480"})"), "so it counts as 1920*1080"));
}

TEST(ConfigurationTest, KeysAreCleanedBeforeTheyAreShown) {
  EXPECT_FALSE(has(warning(R"({"a\nb": "1"})"), "\n"));
}

TEST(ConfigurationTest, TheHostSaysIt) {
  const TemporaryDirectory directory;
  writeFile(directory / "config.json", R"({"cameraQualty": "70"})");
  Process host({LUMSAR_HOST, "unix:" + (directory / "none"), "--config", directory / "config.json",
                "--duration", "1ms", "--timeout", "1ms"});
  EXPECT_TRUE(
      host.says("config.json: the configuration's key \"cameraQualty\" is not known; did "
                "you mean \"quality\"?"))
      << host.output();
}

}  // namespace
}  // namespace lumsar::test
