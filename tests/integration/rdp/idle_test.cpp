// lumsar-rdp has nothing to do while no camera is shared.
#include "integration/rdp/rig.h"
#include "support/wake_ups.h"

namespace lumsar::test {
namespace {

class RdpIdle : public Rig {};

TEST_F(RdpIdle, DoesNotWakeUp) {
  startSession();
  long fewest = 0;
  EXPECT_TRUE(becomesIdle(host->id(), fewest)) << fewest;
}

}  // namespace
}  // namespace lumsar::test
