// ServiceWatch: a camera service that does not answer is reported, and one that is not there is not
// asked.
#include "session/service_watch.h"

#include <gtest/gtest.h>

#include <asio/io_context.hpp>
#include <asio/post.hpp>

namespace lumsar::test {
namespace {

using namespace host;
using namespace std::chrono_literals;

class ServiceWatchTest : public testing::Test {
 protected:
  // Lets the watch run until it has asked `times` times, and then no longer.
  void watchUntilAsked(int times) {
    m_stopAfter = times;
    m_watch.start();
    m_loop.run_for(30s);
    EXPECT_EQ(m_asked, times);
  }

  bool m_connected = true;
  bool m_answers = true;
  int m_asked = 0;
  int m_silences = 0;
  asio::io_context m_loop;

 private:
  bool answer() {
    if (++m_asked == m_stopAfter) asio::post(m_loop, [this] { m_watch.stop(); });
    return m_answers;
  }

  int m_stopAfter = 0;
  ServiceWatch m_watch{m_loop.get_executor(), [this] { return m_connected; },
                       [this] { return answer(); }, [this] { ++m_silences; }};
};

TEST_F(ServiceWatchTest, AsksRepeatedly) {
  watchUntilAsked(3);
  EXPECT_EQ(m_silences, 0);
}

TEST_F(ServiceWatchTest, TellsOfEachSilence) {
  m_answers = false;
  watchUntilAsked(2);
  EXPECT_EQ(m_silences, 2);
}

TEST_F(ServiceWatchTest, WithoutAConnectionItDoesNotAsk) {
  m_connected = false;
  asio::steady_timer later(m_loop, ServiceWatch::kInterval * 5 / 2);
  later.async_wait([this](std::error_code) {
    EXPECT_EQ(m_asked, 0);
    m_connected = true;
  });
  watchUntilAsked(1);
}

}  // namespace
}  // namespace lumsar::test
