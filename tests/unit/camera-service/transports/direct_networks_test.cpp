// Tests of direct_networks.h: which addresses a rule holds. Test's main thread.
#include "transports/direct_networks.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace lumsar::test {
namespace {

bool allows(const std::vector<const char*>& networks, const char* address) {
  service::DirectNetworks direct;
  for (const char* network : networks) direct.add(network);
  return direct.allow(asio::ip::make_address(address));
}

TEST(DirectNetworksTest, WithoutANetworkEachAddressOfOneMachine) {
  for (const char* address : {"127.0.0.1", "10.0.0.7", "::1", "fd00::7", "fe80::7"}) {
    EXPECT_TRUE(allows({}, address)) << address;
  }
  for (const char* address :
       {"0.0.0.0", "::", "224.0.0.1", "ff02::1", "255.255.255.255", "::ffff:0.0.0.0"}) {
    EXPECT_FALSE(allows({}, address)) << address;
  }
}

TEST(DirectNetworksTest, ANetworkHoldsItsAddressesOnly) {
  EXPECT_TRUE(allows({"10.1.0.0/16"}, "10.1.255.7"));
  EXPECT_TRUE(allows({"10.1.2.3/16"}, "10.1.255.7"));
  EXPECT_FALSE(allows({"10.1.0.0/16"}, "10.2.0.7"));
  EXPECT_TRUE(allows({"0.0.0.0/0"}, "192.0.2.1"));
  EXPECT_TRUE(allows({"fd00::/8"}, "fdff::7"));
  EXPECT_FALSE(allows({"fd00::/8"}, "fe80::7"));
  EXPECT_TRUE(allows({"fe80::/10"}, "fe80::7%1"));
  EXPECT_FALSE(allows({"0.0.0.0/0"}, "::1"));
  EXPECT_FALSE(allows({"::/0"}, "127.0.0.1"));
}

TEST(DirectNetworksTest, AnAddressIsANetworkOfOne) {
  EXPECT_TRUE(allows({"10.0.0.7"}, "10.0.0.7"));
  EXPECT_FALSE(allows({"10.0.0.7"}, "10.0.0.8"));
  EXPECT_TRUE(allows({"::1"}, "::1"));
}

TEST(DirectNetworksTest, EachOfSeveralCounts) {
  EXPECT_TRUE(allows({"10.0.0.0/8", "::1"}, "10.0.0.7"));
  EXPECT_TRUE(allows({"10.0.0.0/8", "::1"}, "::1"));
}

TEST(DirectNetworksTest, AMappedAddressIsTheOneThatItStandsFor) {
  EXPECT_TRUE(allows({"10.0.0.0/8"}, "::ffff:10.0.0.7"));
  EXPECT_FALSE(allows({"::/0"}, "::ffff:127.0.0.1"));
}

TEST(DirectNetworksTest, MistakesAreSaid) {
  for (const char* network : {"", "x", "10.0.0.0/33", "10.0.0/8", "::/129", "10.0.0.7/", "host"}) {
    EXPECT_THROW(service::DirectNetworks().add(network), std::invalid_argument) << network;
  }
}

}  // namespace
}  // namespace lumsar::test
