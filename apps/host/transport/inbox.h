// Inbox: carries what a transport reports to a ChannelListener on another thread, in order. When
// the listener lags by kMaxBytes, the transport has to wait: back-pressure on the peer instead of
// a full memory here.
#pragma once

#include <asio/any_io_executor.hpp>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

namespace lumsar::host {

// Told of the channel's life.
class ChannelListener {
 public:
  virtual void channelOpened() = 0;
  // The next bytes of the stream, at any boundary; valid during the call.
  virtual void channelReceived(std::span<const unsigned char> bytes) = 0;
  virtual void channelClosed(const std::string& why) = 0;
  // The channel cannot be opened now; the transport retries.
  virtual void channelUnavailable(const std::string& why) = 0;
  // The channel cannot be opened, and the transport does not retry, as that would not help.
  virtual void channelRefused(const std::string& why) = 0;

 protected:
  ~ChannelListener() = default;
};

class Inbox : public std::enable_shared_from_this<Inbox> {
 public:
  static constexpr std::size_t kMaxBytes = 8U << 20U;

  // The listener is called on `executor`, one event a turn: its signals and timers must not wait
  // until a flood is over.
  explicit Inbox(asio::any_io_executor executor) : m_executor(std::move(executor)) {}

  // Before the transport starts.
  void listen(ChannelListener& listener) { m_listener = &listener; }
  // Drops what waits; no call blocks any more. Thread-safe.
  void end();

  // By the transport, on any one thread.
  void opened();
  // Blocks while the listener lags too far.
  void received(std::span<const unsigned char> bytes);
  // For a thread that must not block: false, with nothing taken, where received() would.
  bool tryReceived(std::span<const unsigned char> bytes);
  // For a thread that waits by itself: calls `action` once received() would not, perhaps at once,
  // perhaps on the executor.
  void whenCapacity(std::function<void()> action);
  void closed(const std::string& why);
  void unavailable(const std::string& why);
  void refused(const std::string& why);

 private:
  using Event = std::function<void(ChannelListener&)>;

  bool hasCapacity() const { return m_bytes < kMaxBytes || m_ended; }
  void take(std::span<const unsigned char> bytes);
  bool appendToLast(std::span<const unsigned char> bytes);
  void put(Event event);
  void deliverLater();
  void deliver();
  void freed(std::size_t size);

  asio::any_io_executor m_executor;
  ChannelListener* m_listener = nullptr;
  std::mutex m_mutex;
  std::condition_variable m_capacity;
  std::function<void()> m_onCapacity;
  std::deque<Event> m_events;
  std::shared_ptr<std::vector<unsigned char>> m_lastBytes;  // of the last event, if it is bytes
  std::size_t m_bytes = 0;                                  // not yet handled by the listener
  bool m_deliveryPosted = false;
  bool m_ended = false;
};

}  // namespace lumsar::host
