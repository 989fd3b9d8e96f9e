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
  bool m_uses = false;  // uses the service again once it has answered
  bool m_answers = true;
  int m_asked = 0;
  int m_silences = 0;
  asio::io_context m_loop;

  ServiceWatch m_watch{m_loop.get_executor(), [this] { return m_connected; },
                       [this] { return answer(); }, [this] { ++m_silences; }};

 private:
  bool answer() {
    if (++m_asked == m_stopAfter) {
      asio::post(m_loop, [this] { m_watch.stop(); });
    } else if (m_uses) {
      asio::post(m_loop, [this] { m_watch.askSoon(); });
    }
    return m_answers;
  }

  int m_stopAfter = 0;
};

TEST_F(ServiceWatchTest, AsksAgainAfterEachUse) {
  m_uses = true;
  watchUntilAsked(3);
  EXPECT_EQ(m_silences, 0);
}

TEST_F(ServiceWatchTest, TellsOfEachSilence) {
  m_uses = true;
  m_answers = false;
  watchUntilAsked(2);
  EXPECT_EQ(m_silences, 2);
}

TEST_F(ServiceWatchTest, AsksSeldomWhenThereIsNothingToDo) {
  m_watch.start();
  m_loop.run_for(ServiceWatch::kSoon * 5);
  EXPECT_EQ(m_asked, 1);
  m_watch.askSoon();
  m_loop.run_for(ServiceWatch::kSoon * 5);
  EXPECT_EQ(m_asked, 2);
  m_watch.stop();
}

TEST_F(ServiceWatchTest, WithoutAConnectionItDoesNotAsk) {
  m_connected = false;
  m_watch.start();
  m_loop.run_for(ServiceWatch::kSoon * 5 / 2);
  EXPECT_EQ(m_asked, 0);
  m_connected = true;
  m_watch.askSoon();
  m_loop.run_for(ServiceWatch::kSoon * 5 / 2);
  EXPECT_EQ(m_asked, 1);
  m_watch.stop();
}

}  // namespace
}  // namespace lumsar::test
