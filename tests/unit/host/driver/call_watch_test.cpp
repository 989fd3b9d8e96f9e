// CallWatch: a call that takes too long is reported while it is still under way.
#include "driver/call_watch.h"

#include <gtest/gtest.h>

#include <asio/executor_work_guard.hpp>
#include <future>
#include <thread>

namespace lumsar::test {
namespace {

using namespace host;
using namespace std::chrono_literals;

class CallWatchTest : public testing::Test {
 protected:
  ~CallWatchTest() override {
    m_loop.stop();
    m_thread.join();
  }

  asio::io_context m_loop;
  asio::executor_work_guard<asio::io_context::executor_type> m_work = asio::make_work_guard(m_loop);
  CallWatch m_watch{m_loop};
  std::thread m_thread{[this] { m_loop.run(); }};
};

TEST_F(CallWatchTest, CallThatHangsIsReportedBeforeItReturns) {
  std::promise<void> reported;
  auto heard = reported.get_future();
  EXPECT_FALSE(m_watch.run(
      10ms, [&] { EXPECT_EQ(heard.wait_for(30s), std::future_status::ready); },
      [&] { reported.set_value(); }));
}

TEST_F(CallWatchTest, QuickCallsAreNotReportedAndTheNextOneIsWatchedAgain) {
  for (int i = 0; i < 1000; ++i) {
    EXPECT_TRUE(m_watch.run(
        30s, [] {}, [] { FAIL(); }));
  }
  std::promise<void> reported;
  auto heard = reported.get_future();
  EXPECT_FALSE(m_watch.run(
      10ms, [&] { EXPECT_EQ(heard.wait_for(30s), std::future_status::ready); },
      [&] { reported.set_value(); }));
  EXPECT_TRUE(m_watch.run(
      30s, [] {}, [] { FAIL(); }));
}

}  // namespace
}  // namespace lumsar::test
