#include "base/net/acceptor.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include "support/raw_peer.h"
#include "support/text.h"

namespace lumsar::test {
namespace {

using namespace base;

// Lets the process open no more descriptors than the lowest `count`.
void limitDescriptors(rlim_t count) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = count;
  setrlimit(RLIMIT_NOFILE, &limit);
}

TEST(Acceptor, AcceptsOneConnectionAfterTheOther) {
  Acceptor acceptor(SocketListener::at(parseAddress("tcp:0")));
  EXPECT_FALSE(acceptor.accept());
  const RawPeer one(acceptor.name());
  const RawPeer two(acceptor.name());
  for (int i = 0; i < 2; ++i) {
    EXPECT_TRUE(eventually([&] { return static_cast<bool>(acceptor.accept()); }));
  }
  EXPECT_GE(acceptor.descriptor(), 0);
}

TEST(Acceptor, PausesWhileThereAreNoDescriptors) {
  Acceptor acceptor(SocketListener::at(parseAddress("tcp:0")));
  const RawPeer peer(acceptor.name());
  testing::internal::CaptureStderr();
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  limitDescriptors(static_cast<rlim_t>(acceptor.descriptor()));  // all below are in use
  for (int failures = 0; failures < 2;) {
    EXPECT_FALSE(acceptor.accept());
    ASSERT_EQ(acceptor.descriptor(), -1);
    ++failures;
    ASSERT_TRUE(eventually([&] { return !acceptor.pausing(); }));
  }
  limitDescriptors(before.rlim_cur);
  EXPECT_TRUE(eventually([&] { return static_cast<bool>(acceptor.accept()); }));
  EXPECT_GE(acceptor.descriptor(), 0);
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_EQ(occurrences(log, "cannot accept a connection on tcp:127.0.0.1:"), 1) << log;
  EXPECT_TRUE(has(log, "Too many open files; trying again")) << log;
}

}  // namespace
}  // namespace lumsar::test
