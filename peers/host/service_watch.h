// ServiceWatch: asks again and again whether the camera service is still there, for a host whom the
// plug-in does not tell. Asks on the worker, for the answer may take its time; everything else
// belongs to the main loop.
#ifndef LUMSAR_HOST_SERVICE_WATCH_H
#define LUMSAR_HOST_SERVICE_WATCH_H

#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <functional>

#include "worker.h"

namespace lumsar::host {

class ServiceWatch {
 public:
  static constexpr std::chrono::milliseconds kInterval{500};

  // The loop must be done with its handlers before this object goes.
  ServiceWatch(asio::io_context& loop, Worker& worker, std::function<bool()> answers,
               std::function<void()> onSilence)
      : m_loop(loop),
        m_worker(worker),
        m_timer(loop),
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
    m_worker.post([this] {
      const bool answers = m_answers();
      asio::post(m_loop, [this, answers] {
        if (m_stopped) return;
        if (!answers) m_onSilence();
        start();
      });
    });
  }

  asio::io_context& m_loop;
  Worker& m_worker;
  asio::steady_timer m_timer;
  std::function<bool()> m_answers;    // on the worker
  std::function<void()> m_onSilence;  // on the main loop
  bool m_stopped = false;
};

}  // namespace lumsar::host

#endif
