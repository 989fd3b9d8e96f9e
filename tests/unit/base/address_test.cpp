#include "base/net/address.h"

#include <gtest/gtest.h>

#include "base/errors.h"
#include "support/text.h"

namespace lumsar::test {
namespace {

using namespace base;

std::string refusal(const std::string& address) {
  return errorOf<UsageError>([&] { toSockaddr(parseAddress(address)); });
}

TEST(Address, HasAPathOrAHostAndAPort) {
  EXPECT_EQ(parseAddress("unix:/a/b").path, "/a/b");
  EXPECT_TRUE(parseAddress("unix:relative").isUnix());
  const Address named = parseAddress("tcp:vm.example:4711");
  EXPECT_FALSE(named.isUnix());
  EXPECT_EQ(named.host, "vm.example");
  EXPECT_EQ(named.port, 4711);
}

TEST(Address, ComesBackAsText) {
  for (const char* same : {"unix:/a/b", "tcp:10.0.0.7:80", "tcp:[::1]:0", "tcp:vm.example:65535"}) {
    EXPECT_EQ(parseAddress(same).text(), same);
  }
  EXPECT_EQ(parseAddress("tcp:80").text(), "tcp:127.0.0.1:80");
  EXPECT_EQ(Address::loopback(80).text(), "tcp:127.0.0.1:80");
}

TEST(Address, IsRefusedWithAReason) {
  for (const char* bad :
       {"", "tcp:", "tcp:x", "tcp:70000", "tcp::1", "tcp:host:", "tcp:host:x", "tcp:[::1]",
        "tcp:[::1]80", "tcp:[::1", "tcp:[]:1", "tcp:::1:80", "tcp:-1", "udp:1", "unix:", "/path"}) {
    EXPECT_NE(refusal(bad).find("is not a valid address; expected unix:PATH"), std::string::npos)
        << bad;
  }
  EXPECT_NE(refusal("tcp:host:1").find("expected a numeric host"), std::string::npos);
}

TEST(Address, OfASocketHasRoomFor107Bytes) {
  EXPECT_EQ(refusal("unix:" + std::string(107, 'x')), "no error");
  EXPECT_NE(refusal("unix:" + std::string(108, 'x')).find("too long; at most 107 bytes"),
            std::string::npos);
  EXPECT_THROW(toSockaddr({std::string(108, 'x'), {}, 0}), UsageError);
}

TEST(Address, BecomesASocketsAddress) {
  EXPECT_EQ(toSockaddr(parseAddress("unix:/a")).storage.ss_family, AF_UNIX);
  EXPECT_EQ(toSockaddr(parseAddress("tcp:1")).storage.ss_family, AF_INET);
  EXPECT_EQ(toSockaddr(parseAddress("tcp:localhost:1")).storage.ss_family, AF_INET);
  EXPECT_EQ(toSockaddr(parseAddress("tcp:[::1]:1")).storage.ss_family, AF_INET6);
}

TEST(HostAndPort, AreSplit) {
  const auto split = [](std::string_view text) {
    const auto found = splitHostAndPort(text);
    if (!found) return std::string("refused");
    return found->host + "|" + (found->port ? std::to_string(*found->port) : "");
  };
  EXPECT_EQ(split("vm.example"), "vm.example|");
  EXPECT_EQ(split("vm.example:3390"), "vm.example|3390");
  EXPECT_EQ(split("[::1]"), "::1|");
  EXPECT_EQ(split("[::1]:3390"), "::1|3390");
  for (const char* bad : {"", ":80", "a:", "a:b", "a:1:2", "[::1", "[]:1", "[::1]80", "a:70000"}) {
    EXPECT_EQ(split(bad), "refused") << bad;
  }
}

}  // namespace
}  // namespace lumsar::test
