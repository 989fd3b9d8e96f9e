// ServiceWatch: asks again and again whether the camera service is still there, for a host whom the
// plug-in does not tell. Asks on the worker, for the answer may take its time; everything else
// belongs to the main loop.
#ifndef LUMSAR_HOST_SESSION_SERVICE_WATCH_H
#define LUMSAR_HOST_SESSION_SERVICE_WATCH_H

#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>

#include "session/worker.h"

namespace lumsar::host {

class ServiceWatch {
 public:
  static constexpr std::chrono::milliseconds kInterval{500};

  // Numbers the connections to the service; nothing while there is none.
  using Connection = std::function<std::optional<std::uint64_t>()>;

  // The loop must be done with its handlers before this object goes.
  ServiceWatch(asio::io_context& loop, Worker& worker, Connection connection,
               std::function<bool()> answers, std::function<void()> onSilence)
      : m_loop(loop),
        m_worker(worker),
        m_timer(loop),
        m_connection(std::move(connection)),
        m_answers(std::move(answers)),
        m_onSilence(std::move(onSilence)) {}

  void start() {
    m_timer.expires_after(kInterval);
    m_timer.async_wait([this](std::error_code error) {
      if (!error && !m_stopped) ask();
    });
  }

  void stop() {
    m_stopped = true;
    m_timer.cancel();
  }

 private:
  void ask() {
    const auto asked = m_connection();
    if (!asked) return start();
    m_worker.post([this, asked] {
      const bool answers = m_answers();
      asio::post(m_loop, [this, asked, answers] {
        if (m_stopped) return;
        // The silence of a former connection says nothing about this one.
        if (!answers && m_connection() == asked) m_onSilence();
        start();
      });
    });
  }

  asio::io_context& m_loop;
  Worker& m_worker;
  asio::steady_timer m_timer;
  Connection m_connection;            // on the main loop
  std::function<bool()> m_answers;    // on the worker
  std::function<void()> m_onSilence;  // on the main loop
  bool m_stopped = false;
};

}  // namespace lumsar::host

#endif
