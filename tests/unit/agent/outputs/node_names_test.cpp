#include "outputs/pipewire/node_names.h"

#include <gtest/gtest.h>

namespace lumsar::test {
namespace {

TEST(NodeNames, AreTheSameEachTimeACameraComes) {
  agent::NodeNames names;
  EXPECT_EQ(names.take("test:Front"), "lumsar.test-Front");
  names.giveBack("lumsar.test-Front");
  EXPECT_EQ(names.take("test:Front"), "lumsar.test-Front");
}

TEST(NodeNames, DifferForCamerasOfOneIdentity) {
  agent::NodeNames names;
  EXPECT_EQ(names.take("usb-1"), "lumsar.usb-1");
  EXPECT_EQ(names.take("usb/1"), "lumsar.usb-1.2");
  EXPECT_EQ(names.take("usb-1"), "lumsar.usb-1.3");
  names.giveBack("lumsar.usb-1.2");
  EXPECT_EQ(names.take("usb-1"), "lumsar.usb-1.2");
}

TEST(NodeNames, AreThereForCamerasWithoutAnIdentity) {
  agent::NodeNames names;
  EXPECT_EQ(names.take(""), "lumsar.camera");
  EXPECT_EQ(names.take("\x1b[2J \"{}"), "lumsar.2J");
}

}  // namespace
}  // namespace lumsar::test
