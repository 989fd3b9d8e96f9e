// InsideTest: the class Lumsar itself, linked from the plug-in, with the records of log, IPC
// library and host around it. For what only the class shows. Each test needs a process of its own,
// as with PluginTest, and must name everything.
#pragma once

#include "core/lumsar.h"
#include "support/plugin/plugin_test.h"

namespace lumsar::test {

class InsideTest : public FreshPluginTest {
 protected:
  void SetUp() override {
    FreshPluginTest::SetUp();
    object = Lumsar::GetInstance();
    ASSERT_NE(object, nullptr);
    ASSERT_EQ(log.take().size(), 1U);
  }
  // A bound library and a client; empty records.
  void initObject() {
    ASSERT_TRUE(object->Init(libDir(), "vm-7"));
    forget();
  }
  static QString libDir() { return QString::fromStdString(libraryDir()); }

  Lumsar* object = nullptr;
};

// For tests that begin with a bound library and a client.
template <class Fixture>
class Initialized : public Fixture {
 protected:
  void SetUp() override {
    Fixture::SetUp();
    this->initObject();
  }
};

}  // namespace lumsar::test
