// What the add-in for RDP clients is told, and which VM that is about.
#include "addin/add_in_options.h"

#include <gtest/gtest.h>

#include "base/errors.h"
#include "support/text.h"

namespace lumsar::test {
namespace {

using namespace host;

AddInOptions parse(std::vector<std::string> words) {
  words.insert(words.begin(), {"plugin:/plugin", "ipc-library:/library"});
  return parseAddInOptions(words, "/");
}

AddInVm vm(const std::string& host, const std::vector<std::string>& words = {}) {
  return identify(parse(words), host, 3389);
}

TEST(AddInOptions, AreThoseOfTheCommandLine) {
  const AddInOptions options =
      parse({"vm-id:Desk", "share:Front", "share:a:b", "window:no", "verbose"});
  EXPECT_EQ(options.plugin, "/plugin");
  EXPECT_EQ(options.driver.ipcLibrary, "/library");
  EXPECT_EQ(options.driver.vmId, "Desk");
  EXPECT_EQ(options.driver.protocol, Protocol::Rdp);
  EXPECT_EQ(options.shares, (std::vector<std::string>{"Front", "a:b"}));
  EXPECT_FALSE(options.window);
  EXPECT_TRUE(options.verbose);
  EXPECT_TRUE(parse({}).window);
}

TEST(AddInOptions, WhatIsWrongIsSaid) {
  for (const std::string word : {"camera:3", "window:yes", "window", "share:"}) {
    EXPECT_TRUE(has(errorOf<base::UsageError>([&] { parse({word}); }),
                    "unknown option \"" + word + "\"; expected plugin:PATH"));
  }
  EXPECT_EQ(errorOf<base::UsageError>([] { parse({"vm-id:"}); }), "vm-id needs a value");
}

TEST(AddInVm, IsCalledWhatItsUserCallsIt) {
  EXPECT_EQ(vm("desk.example").name, "desk.example");
  EXPECT_EQ(vm("desk.example", {"vm-id:Desk"}).name, "Desk");
  EXPECT_EQ(vm("desk\n.example").name, "desk?.example");
  EXPECT_EQ(vm("").name, "VM");
}

// Two VMs never have the same key.
TEST(AddInVm, IsKeptApartFromOthers) {
  EXPECT_EQ(vm("desk.example").key, "rdp desk.example:3389 ");
  EXPECT_EQ(vm("desk.example", {"vm-id:Desk"}).key, "rdp desk.example:3389 Desk");
  for (const char* tunnel : {"localhost", "127.0.0.1", "::1", "/run/tunnel", ""}) {
    EXPECT_EQ(vm(tunnel).key, "") << tunnel;
    EXPECT_NE(vm(tunnel, {"vm-id:Desk"}).key, "") << tunnel;
  }
}

}  // namespace
}  // namespace lumsar::test
