// Choices: kept per VM, in a file that survives what others do to it.
#include "cameras/choices.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "support/temporary_directory.h"
#include "support/text.h"

namespace lumsar::test {
namespace {

using viewer::Choices;

struct ChoicesTest : testing::Test {
  Choices choices(const std::string& vm = "vm") { return Choices(file, vm); }

  TemporaryDirectory directory;
  const std::string file = directory.path() + "/lumsar/viewer.json";
};

TEST_F(ChoicesTest, NothingIsRememberedUnasked) {
  EXPECT_EQ(choices().cameras(), std::nullopt);
  EXPECT_EQ(choices().warning(), "");
  EXPECT_TRUE(directory.files().empty());
}

TEST_F(ChoicesTest, EachVmHasItsOwn) {
  EXPECT_TRUE(choices("one").remember(Choices::Cameras{"a", "b c"}));
  EXPECT_TRUE(choices("two").remember(Choices::Cameras{}));
  EXPECT_EQ(choices("one").cameras(), (Choices::Cameras{"a", "b c"}));
  EXPECT_EQ(choices("two").cameras(), Choices::Cameras{});
  EXPECT_EQ(choices("three").cameras(), std::nullopt);
}

TEST_F(ChoicesTest, WhatIsForgottenLeavesTheOthers) {
  EXPECT_TRUE(choices("one").remember(Choices::Cameras{"a"}));
  EXPECT_TRUE(choices("two").remember(Choices::Cameras{"b"}));
  EXPECT_TRUE(choices("one").remember(std::nullopt));
  EXPECT_EQ(choices("one").cameras(), std::nullopt);
  EXPECT_EQ(choices("two").cameras(), Choices::Cameras{"b"});
}

// Two viewers at a time: each writes what the other has written, too.
TEST_F(ChoicesTest, WhatAnotherProcessHasWrittenStays) {
  Choices one = choices("one");
  EXPECT_TRUE(choices("two").remember(Choices::Cameras{"b"}));
  EXPECT_TRUE(one.remember(Choices::Cameras{"a"}));
  EXPECT_EQ(choices("two").cameras(), Choices::Cameras{"b"});
}

TEST_F(ChoicesTest, ADamagedFileIsSetAside) {
  ASSERT_TRUE(choices().remember(Choices::Cameras{"a"}));
  writeFile(file, "{\"vms\":");
  const Choices damaged = choices();
  EXPECT_EQ(damaged.cameras(), std::nullopt);
  EXPECT_TRUE(has(damaged.warning(), "is not JSON")) << damaged.warning();
  EXPECT_TRUE(has(damaged.warning(), "it is now " + file + ".damaged")) << damaged.warning();
  EXPECT_EQ(readFile(file + ".damaged"), "{\"vms\":");
  EXPECT_TRUE(choices().remember(Choices::Cameras{"b"}));
}

TEST_F(ChoicesTest, OnlyItsOwnerReadsIt) {
  ASSERT_TRUE(choices().remember(Choices::Cameras{"a"}));
  struct stat status {};
  ASSERT_EQ(stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(ChoicesTest, AFileThatCannotBeWrittenIsSaid) {
  writeFile(directory.path() + "/lumsar", "in the way");
  EXPECT_FALSE(choices().remember(Choices::Cameras{"a"}));
}

}  // namespace
}  // namespace lumsar::test
