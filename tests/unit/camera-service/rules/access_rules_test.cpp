// Tests of access_rules.h. Test's main thread.
#include "rules/access_rules.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace lumsar::test {
namespace {

using service::AccessRules;
using service::CameraInfo;

CameraInfo camera(const std::string& id, const std::string& name) {
  CameraInfo info;
  info.id = id;
  info.name = name;
  return info;
}

const CameraInfo kFront = camera("test:Front", "Front camera");
const CameraInfo kDesk = camera("/dev/video0", "Desk");

TEST(AccessRulesTest, WithoutRulesAllIsAllowed) {
  EXPECT_EQ(AccessRules().refusal(kFront, "vm"), "");
}

TEST(AccessRulesTest, NamesTheRulesThatMatchNoCamera) {
  AccessRules rules;
  for (const char* rule : {"Desk", "Typo*", "Front*@vm-9"}) rules.deny(rule);
  rules.allow("Dsk@vm-9");
  using Names = std::vector<std::string>;
  EXPECT_EQ(rules.unmatched({kFront, kDesk}), (Names{"--allow Dsk@vm-9", "--deny Typo*"}));
  EXPECT_EQ(rules.unmatched({}).size(), 4U);
}

TEST(AccessRulesTest, DeniesByIdNameAndPattern) {
  for (const char* rule : {"test:Front", "Front camera", "test:*", "Front*", "*Fron?*"}) {
    AccessRules rules;
    rules.deny(rule);
    EXPECT_NE(rules.refusal(kFront, "vm").find(rule), std::string::npos) << rule;
    EXPECT_EQ(rules.refusal(kDesk, "vm"), "") << rule;
  }
}

TEST(AccessRulesTest, ARuleMayBeForOneVm) {
  AccessRules rules;
  rules.deny("*@vm-9");
  EXPECT_NE(rules.refusal(kFront, "vm-9"), "");
  EXPECT_EQ(rules.refusal(kFront, "vm-7"), "");
}

TEST(AccessRulesTest, AllowingOneCameraLeavesTheOthersOut) {
  AccessRules rules;
  rules.allow("Desk");
  EXPECT_EQ(rules.refusal(kDesk, "vm"), "");
  EXPECT_NE(rules.refusal(kFront, "vm"), "");
}

TEST(AccessRulesTest, ADenialCountsMoreThanAnAllowance) {
  AccessRules rules;
  rules.allow("*");
  rules.deny("Desk@vm-7");
  EXPECT_NE(rules.refusal(kDesk, "vm-7"), "");
  EXPECT_EQ(rules.refusal(kDesk, "vm-8"), "");
}

TEST(AccessRulesTest, ANameMayHoldAnAt) {
  const CameraInfo icon = camera("file:icon@2x.jpg", "icon@2x");
  for (const char* rule : {"file:icon@2x.jpg", "icon@2x", "file:icon@*", "file:icon@2x.jpg@vm"}) {
    AccessRules rules;
    rules.deny(rule);
    EXPECT_NE(rules.refusal(icon, "vm"), "") << rule;
    EXPECT_EQ(rules.refusal(kDesk, "vm"), "") << rule;
  }
  AccessRules rules;
  rules.allow("file:icon@2x.jpg");
  EXPECT_EQ(rules.refusal(icon, "vm"), "");
}

TEST(AccessRulesTest, ADenialHoldsForABeginningOfItsVm) {
  for (const char* rule : {"Desk@vm-12345", "Desk@vm-1*", "Desk@*345", "Desk@vm-?23*"}) {
    AccessRules rules;
    rules.deny(rule);
    EXPECT_NE(rules.refusal(kDesk, "vm-123", true), "") << rule;
    EXPECT_EQ(rules.refusal(kFront, "vm-123", true), "") << rule;
    EXPECT_EQ(rules.refusal(kDesk, "v", false), "") << rule;
  }
  AccessRules rules;
  rules.deny("Desk@vm-99999");
  EXPECT_EQ(rules.refusal(kDesk, "vm-123", true), "");
  rules.allow("Front*@vm-12345");
  EXPECT_NE(rules.refusal(kFront, "vm-123", true), "") << "what is allowed has to be sure";
}

TEST(AccessRulesTest, ABracketInAnIdIsThatCamera) {
  AccessRules rules;
  rules.deny("file:[1].jpg");
  EXPECT_NE(rules.refusal(camera("file:[1].jpg", "x"), "vm"), "");
}

TEST(AccessRulesTest, ARuleWithoutCameraOrVmIsNone) {
  AccessRules rules;
  for (const char* rule : {"", "@vm", "camera@"}) {
    EXPECT_THROW(rules.allow(rule), std::invalid_argument);
    EXPECT_THROW(rules.deny(rule), std::invalid_argument);
  }
}

}  // namespace
}  // namespace lumsar::test
