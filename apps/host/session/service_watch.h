// ServiceWatch: asks repeatedly whether the camera service is still there, for a host that the
// plug-in does not tell. Bound to the thread that calls the plug-in.
#pragma once

#include <asio/any_io_executor.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <functional>

namespace lumsar::host {

class ServiceWatch {
 public:
  static constexpr std::chrono::milliseconds kInterval{500};

  // `answers` asks the service, and may block; `onSilence` is called when it does not answer.
  ServiceWatch(const asio::any_io_executor& executor, std::function<bool()> isConnected,
               std::function<bool()> answers, std::function<void()> onSilence)
      : m_timer(executor),
        m_isConnected(std::move(isConnected)),
        m_answers(std::move(answers)),
        m_onSilence(std::move(onSilence)) {}

  void start() {
    m_timer.expires_after(kInterval);
    m_timer.async_wait([this](std::error_code error) {
      if (error) return;
      if (m_isConnected() && !m_answers()) m_onSilence();
      start();
    });
  }
  void stop() { m_timer.cancel(); }

 private:
  asio::steady_timer m_timer;
  std::function<bool()> m_isConnected;
  std::function<bool()> m_answers;
  std::function<void()> m_onSilence;
};

}  // namespace lumsar::host
