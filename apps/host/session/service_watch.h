// ServiceWatch: asks whether the camera service is still there, for a host that the plug-in does
// not tell: soon after there was something to do with it, and seldom otherwise, so that a host that
// does nothing does not wake up. Bound to the thread that calls the plug-in.
#pragma once

#include <asio/any_io_executor.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <functional>
#include <utility>

namespace lumsar::host {

class ServiceWatch {
 public:
  static constexpr std::chrono::milliseconds kSoon{500};
  static constexpr std::chrono::seconds kIdle{30};

  // `answers` asks the service, and may block; `onSilence` is called when it does not answer.
  ServiceWatch(const asio::any_io_executor& executor, std::function<bool()> isConnected,
               std::function<bool()> answers, std::function<void()> onSilence)
      : m_timer(executor),
        m_isConnected(std::move(isConnected)),
        m_answers(std::move(answers)),
        m_onSilence(std::move(onSilence)) {}

  void start() {
    m_runs = true;
    askSoon();
  }
  void stop() {
    m_runs = false;
    m_timer.cancel();
  }
  void askSoon() {
    if (m_runs && !std::exchange(m_asksSoon, true)) askAfter(kSoon);
  }

 private:
  void askAfter(std::chrono::milliseconds time) {
    m_timer.expires_after(time);
    m_timer.async_wait([this](std::error_code error) {
      if (error || !m_runs) return;
      m_asksSoon = false;
      if (m_isConnected() && !m_answers()) m_onSilence();
      if (m_runs && !m_asksSoon) askAfter(kIdle);
    });
  }

  asio::steady_timer m_timer;
  std::function<bool()> m_isConnected;
  std::function<bool()> m_answers;
  std::function<void()> m_onSilence;
  bool m_runs = false;
  bool m_asksSoon = false;
};

}  // namespace lumsar::host
