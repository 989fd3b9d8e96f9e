// VmIdentity: under which name a VM's choices are kept. What a server says of its VM needs a
// server: integration/viewer.
#include "port/vm_identity.h"

#include <gtest/gtest.h>

namespace lumsar::test {
namespace {

viewer::VmIdentity identityAt(const char* property, const char* value, const char* port = "5900") {
  SpiceSession* session = spice_session_new();
  g_object_set(session, property, value, "port", port, nullptr);
  SpiceChannel* channel = spice_channel_new(session, SPICE_CHANNEL_PORT, 0);
  viewer::VmIdentity identity = viewer::identify(channel);
  spice_session_disconnect(session);
  g_object_unref(session);
  return identity;
}

TEST(VmIdentity, AVmWithoutANameIsCalledByItsAddress) {
  EXPECT_EQ(identityAt("host", "server").name, "server:5900");
  EXPECT_EQ(identityAt("unix-path", "/run/vm.sock").name, "/run/vm.sock");
}

// The next one at this address may be another VM.
TEST(VmIdentity, NothingIsKeptForAVmWithNeitherNameNorUuid) {
  EXPECT_EQ(identityAt("host", "server").key, "");
  EXPECT_EQ(identityAt("unix-path", "/run/vm.sock").key, "");
}

TEST(VmIdentity, AConnectionThatIsHandedOverHasNoAddress) {
  EXPECT_EQ(identityAt("host", "localhost", nullptr).name, "VM");
  EXPECT_EQ(identityAt("host", "localhost", nullptr).key, "");
}

}  // namespace
}  // namespace lumsar::test
