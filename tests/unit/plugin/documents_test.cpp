// SetConfigAndPolicy and UpdatePolicy by themselves: results, lines, and the members they keep.
// Which policy comes from which configuration is in plugin/policy_test.cpp.
#include "unit/plugin/inside_test.h"

namespace lumsar::test {
namespace {

using Documents = InsideTest;

TEST_F(Documents, EmptyConfigurationChangesNothing) {
  object->SetConfigAndPolicy("{}");
  const QString policy = object->m_policyJson;
  log.clear();
  EXPECT_FALSE(object->SetConfigAndPolicy(""));
  EXPECT_EQ(log.take(),
            Lines{warning("[SetConfigAndPolicy][717] >>>>Lumsar configuration is NULL!!!<<<<\n")});
  EXPECT_EQ(object->m_configJson, "{}");
  EXPECT_EQ(object->m_policyJson, policy);
}

TEST_F(Documents, PolicyIsBuiltAndLogged) {
  object->m_vmId = "vm-7";
  EXPECT_TRUE(object->SetConfigAndPolicy(object->m_defaultConfig));
  EXPECT_EQ(log.take(), policyLines(kDefaultConfig, defaultPolicy()));
  EXPECT_EQ(object->m_configJson.toStdString(), kDefaultConfig);
  EXPECT_EQ(object->m_policyJson.toStdString(), defaultPolicy().text());
}

TEST_F(Documents, ArrayGivesTheDefaults) {
  object->m_vmId = "vm-7";
  EXPECT_TRUE(object->SetConfigAndPolicy("[1,2]"));
  EXPECT_EQ(object->m_policyJson.toStdString(), Policy{}.text());
  log.clear();
}

TEST_F(Documents, NotJsonIsStoredButNoPolicy) {
  object->SetConfigAndPolicy("{}");
  const QString policy = object->m_policyJson;
  log.clear();
  EXPECT_FALSE(object->SetConfigAndPolicy("no JSON"));
  EXPECT_EQ(log.take(), (Lines{info("SetConfigAndPolicy: configuration:\n \"no JSON\""),
                               warning("Json command is NULL!")}));
  EXPECT_EQ(object->m_configJson, "no JSON");
  EXPECT_EQ(object->m_policyJson, policy);
}

TEST_F(Documents, VersionIsThatOfTheMembers) {
  object->m_vmId = "vm-7";
  object->m_vmVersionMajor = 300;
  object->m_vmVersionMinor = 65535;
  EXPECT_TRUE(object->SetConfigAndPolicy("{}"));
  Policy policy;
  policy.version = R"("300.65535")";
  EXPECT_EQ(object->m_policyJson.toStdString(), policy.text());
  log.clear();
}

TEST_F(Documents, UpdateChangesOnlyTheVersion) {
  object->m_vmId = "vm-7";
  object->SetConfigAndPolicy("{}");
  log.clear();
  object->m_vmId = "vm-8";
  object->UpdatePolicy(2, 13);
  Policy policy;
  policy.version = R"("2.13")";
  EXPECT_EQ(object->m_policyJson.toStdString(), policy.text());
  EXPECT_EQ(log.take(), Lines{info("UpdatePolicy: new policy:\n " + inQuotes(policy.text()))});
  EXPECT_EQ(object->m_vmVersionMajor, 2);
  EXPECT_EQ(object->m_vmVersionMinor, 13);
  EXPECT_EQ(object->m_configJson, "{}");
}

TEST_F(Documents, UpdateBeforeAnyPolicyChangesNothing) {
  object->UpdatePolicy(2, 13);
  EXPECT_EQ(log.take(), Lines{warning("Json command is NULL!")});
  EXPECT_EQ(object->m_vmVersionMajor, 1);
  EXPECT_EQ(object->m_vmVersionMinor, 0);
  EXPECT_TRUE(object->m_policyJson.isNull());
}

TEST_F(Documents, UpdateOfATextThatIsNotJson) {
  object->m_policyJson = "broken";
  object->UpdatePolicy(2, 13);
  EXPECT_EQ(log.take(), Lines{warning("Json command is NULL!")});
  EXPECT_EQ(object->m_vmVersionMajor, 1);
  EXPECT_EQ(object->m_policyJson, "broken");
}

TEST_F(Documents, UpdateOfAnyObjectKeepsItsKeys) {
  object->m_policyJson = R"({ "z": [1, {"y": null}], "version": 5, "a": "é" })";
  object->UpdatePolicy(65535, 1);
  EXPECT_EQ(object->m_policyJson, R"({"a":"é","version":"65535.1","z":[1,{"y":null}]})");
  log.clear();
}

TEST_F(Documents, UpdateOfAnArrayGivesAnObject) {
  object->m_policyJson = "[1]";
  object->UpdatePolicy(2, 0);
  EXPECT_EQ(object->m_policyJson, R"({"version":"2.0"})");
  log.clear();
}

TEST_F(Documents, NeitherTakesTheMutex) {
  ASSERT_TRUE(object->m_mutex.tryLock());
  EXPECT_TRUE(object->SetConfigAndPolicy("{}"));
  object->UpdatePolicy(2, 0);
  object->m_mutex.unlock();
  log.clear();
}

}  // namespace
}  // namespace lumsar::test
