// RdpTransport: the channel to the VM as a static virtual channel of an RDP connection of its own.
// The RDP library lives on its own thread, one RdpClient after another.
#pragma once

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>

#include "base/back_off.h"
#include "base/system/temporary_directory.h"
#include "rdp/rdp_client.h"
#include "transport/inbox.h"
#include "transport/send_queue.h"
#include "transport/transport.h"

namespace lumsar::host {

class RdpTransport final : public Transport {
 public:
  RdpTransport(asio::io_context& loop, SendQueue& queue, Inbox& inbox, RdpTarget target);
  // NOLINTNEXTLINE(bugprone-exception-escape): a mutex or a thread that fails leaves no way on
  ~RdpTransport() override;

  void start() override;
  void stop() override;
  void wake() override;

 private:
  struct Attempt {
    Attempt(SendQueue& queue, Inbox& inbox, const RdpTarget& target,
            std::function<void()> onWaiting)
        : channel(queue, inbox), client(target, channel, std::move(onWaiting)) {}
    RdpChannel channel;
    RdpClient client;
  };

  void run();
  RdpClient::Outcome attempt();
  bool show(Attempt* attempt);
  bool pause(std::chrono::milliseconds time);
  void watchSoon();
  void watch();

  SendQueue& m_queue;
  Inbox& m_inbox;
  std::optional<base::TemporaryDirectory> m_directory;  // until stop()
  RdpTarget m_target;
  asio::steady_timer m_watch;
  // The loop has nothing else to wait for while there is no deadline.
  std::optional<asio::executor_work_guard<asio::io_context::executor_type>> m_work;
  std::mutex m_mutex;            // guards the two below
  Attempt* m_attempt = nullptr;  // while it runs
  bool m_stopping = false;
  std::condition_variable m_changed;
  std::thread m_thread;
};

}  // namespace lumsar::host
