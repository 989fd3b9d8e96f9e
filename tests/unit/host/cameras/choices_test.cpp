// Choices: kept per VM, in a file that survives what others do to it.
#include "cameras/choices.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <future>

#include "support/temporary_directory.h"
#include "support/text.h"

namespace lumsar::test {
namespace {

using host::Choices;

struct ChoicesTest : testing::Test {
  Choices choices(const std::string& vm = "vm") { return Choices(file, vm); }

  TemporaryDirectory directory;
  const std::string file = directory.path() + "/lumsar/viewer.json";
};

TEST_F(ChoicesTest, NothingIsRememberedUnasked) {
  EXPECT_EQ(choices().cameras(), std::nullopt);
  EXPECT_EQ(choices().takeWarning(), "");
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
  Choices damaged = choices();
  EXPECT_EQ(damaged.cameras(), std::nullopt);
  const std::string warning = damaged.takeWarning();
  EXPECT_TRUE(has(warning, "is not JSON")) << warning;
  EXPECT_TRUE(has(warning, "it is now " + file + ".damaged")) << warning;
  EXPECT_EQ(damaged.takeWarning(), "");
  EXPECT_EQ(readFile(file + ".damaged"), "{\"vms\":");
  EXPECT_TRUE(choices().remember(Choices::Cameras{"b"}));
}

// What is not of this program's making, or of another version of it.
TEST_F(ChoicesTest, VmsThatAreNoObjectAreSetAside) {
  ASSERT_TRUE(choices().remember(Choices::Cameras{"a"}));
  writeFile(file, R"({"vms":["a"]})");
  EXPECT_TRUE(has(choices().takeWarning(), "has \"vms\" that are not an object"));
  EXPECT_EQ(readFile(file + ".damaged"), R"({"vms":["a"]})");
}

TEST_F(ChoicesTest, AFileThatIsDamagedLaterIsSetAsideAndSaid) {
  Choices one = choices();
  ASSERT_TRUE(one.remember(Choices::Cameras{"a"}));
  writeFile(file, "damaged");
  EXPECT_TRUE(one.remember(Choices::Cameras{"b"}));
  EXPECT_TRUE(has(one.takeWarning(), "it is now " + file + ".damaged"));
  EXPECT_EQ(choices().cameras(), Choices::Cameras{"b"});
}

TEST_F(ChoicesTest, ADamagedFileThatCannotBeSetAsideIsNotOverwritten) {
  ASSERT_TRUE(choices().remember(Choices::Cameras{"a"}));
  writeFile(file, "damaged");
  std::filesystem::create_directories(file + ".damaged/in the way");
  EXPECT_FALSE(choices().remember(Choices::Cameras{"b"}));
  EXPECT_EQ(readFile(file), "damaged");
}

TEST_F(ChoicesTest, AFileThatCannotBeReadIsSaid) {
  std::filesystem::create_directories(file);
  EXPECT_TRUE(has(choices().takeWarning(), "cannot read " + file + ": Is a directory"));
  EXPECT_FALSE(choices().remember(Choices::Cameras{"a"}));
}

TEST_F(ChoicesTest, TwoViewersLoseNothingOfEachOther) {
  const auto remember = [this](const std::string& vm) {
    Choices own = choices(vm);
    for (int i = 0; i < 200; ++i) {
      if (!own.remember(Choices::Cameras{std::to_string(i)})) return false;
    }
    return true;
  };
  auto other = std::async(std::launch::async, remember, "two");
  EXPECT_TRUE(remember("one"));
  EXPECT_TRUE(other.get());
  EXPECT_EQ(choices("one").cameras(), Choices::Cameras{"199"});
  EXPECT_EQ(choices("two").cameras(), Choices::Cameras{"199"});
}

TEST_F(ChoicesTest, NothingIsRememberedOfAVmThatCannotBeTold) {
  EXPECT_FALSE(choices("").canRemember());
  EXPECT_FALSE(Choices("", "vm").canRemember());
  EXPECT_TRUE(choices().canRemember());
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
