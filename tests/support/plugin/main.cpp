// main() of the test programs: records the log, makes the application object (unless built with
// WITHOUT_APPLICATION) and runs the tests.
// One test per process: run a single one with --gtest_filter, or all of them through ctest.
#include <gtest/gtest.h>

#ifndef WITHOUT_APPLICATION
#include <QCoreApplication>
#endif

#include "support/plugin/log_record.h"
#include "support/plugin/plugin_test.h"

const char* const lumsar::test::kPluginFile = LUMSAR_PLUGIN;

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  lumsar::test::LogRecord::install();
#ifndef WITHOUT_APPLICATION
  const QCoreApplication application(argc, argv);
#endif
  return RUN_ALL_TESTS();
}
