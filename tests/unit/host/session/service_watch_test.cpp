// ServiceWatch: a service that does not answer is given up, but only the one that was asked.
#include "session/service_watch.h"

#include <gtest/gtest.h>

#include <asio/executor_work_guard.hpp>
#include <atomic>

namespace lumsar::host {
namespace {

using namespace std::chrono_literals;

class ServiceWatchTest : public testing::Test {
 protected:
  // Lets the watch run until it has asked `times` times, and then no longer.
  void watchUntilAsked(int times) {
    m_stopAfter = times;
    const auto alive = asio::make_work_guard(m_loop);
    m_watch.start();
    m_loop.run_for(10s);
  }

  bool answer() {
    ++m_asked;
    if (m_beforeAnswer) m_beforeAnswer();
    // Only once this answer has been judged.
    if (m_asked >= m_stopAfter) asio::post(m_loop, [this] { endAfterJudgement(); });
    return m_answers;
  }

  std::optional<std::uint64_t> m_connection = 1;
  std::atomic<bool> m_answers = true;
  std::atomic<int> m_asked = 0;
  std::function<void()> m_beforeAnswer;  // on the worker
  int m_silences = 0;
  asio::io_context m_loop;

 private:
  void endAfterJudgement() {
    m_end.expires_after(100ms);
    m_end.async_wait([this](std::error_code) {
      m_watch.stop();
      m_loop.stop();
    });
  }

  int m_stopAfter = 0;
  asio::steady_timer m_end{m_loop};
  Worker m_worker;
  ServiceWatch m_watch{m_loop, m_worker, [this] { return m_connection; },
                       [this] { return answer(); }, [this] { ++m_silences; }};
};

TEST_F(ServiceWatchTest, AsksAgainAndAgain) {
  watchUntilAsked(3);
  EXPECT_EQ(m_asked, 3);
  EXPECT_EQ(m_silences, 0);
}

TEST_F(ServiceWatchTest, TellsOfEachSilence) {
  m_answers = false;
  watchUntilAsked(2);
  EXPECT_EQ(m_silences, 2);
}

TEST_F(ServiceWatchTest, SilenceOfAFormerConnectionDoesNotCount) {
  m_answers = false;
  m_beforeAnswer = [this] {
    std::atomic<bool> replaced = false;
    asio::post(m_loop, [&] {
      m_connection = 2;
      replaced = true;
    });
    while (!replaced) std::this_thread::sleep_for(1ms);
  };
  watchUntilAsked(1);
  EXPECT_EQ(m_silences, 0);
}

TEST_F(ServiceWatchTest, WithoutAConnectionNobodyIsAsked) {
  m_connection.reset();
  asio::steady_timer later(m_loop, ServiceWatch::kInterval * 5 / 2);
  later.async_wait([this](std::error_code) {
    EXPECT_EQ(m_asked, 0);
    m_connection = 1;
  });
  watchUntilAsked(1);
  EXPECT_EQ(m_asked, 1);
}

}  // namespace
}  // namespace lumsar::host
