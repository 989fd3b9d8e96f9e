// The module in a program without SPICE.
#include <gtest/gtest.h>

#include "integration/viewer/screen.h"
#include "support/temporary_directory.h"
#include "support/text.h"

namespace lumsar::test {
namespace {

struct Module : testing::Test {
  void SetUp() override { ASSERT_TRUE(screen.isUp()); }

  std::string run(const std::string& modules) {
    auto environment = screen.environment(directory.path());
    environment["GTK_MODULES"] = modules;
    Process program({LUMSAR_GTK_PROGRAM}, {.environment = environment});
    EXPECT_EQ(program.wait(), 0);
    return program.output();
  }

  Screen screen;
  TemporaryDirectory directory;
};

TEST_F(Module, DoesNothingInAProgramWithoutSpice) {
  const std::string without = run("");
  EXPECT_EQ(run(LUMSAR_GTK_MODULE), "loaded liblumsar-gtk.so\n" + without);
}

}  // namespace
}  // namespace lumsar::test
