// Inbox: carries what a transport reports to a ChannelListener on another thread, in order. When
// the listener falls behind by kMaxBytes, the transport has to wait, so that the peer is slowed
// down instead of filling this machine's memory.
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
  // Some bytes of the stream, cut anywhere; valid during the call.
  virtual void channelReceived(std::span<const unsigned char> bytes) = 0;
  virtual void channelClosed(const std::string& why) = 0;
  // The channel cannot be opened now; the transport goes on trying.
  virtual void channelUnavailable(const std::string& why) = 0;
  // The channel cannot be opened and trying again would not help; the transport has given up.
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
  // What waits is dropped, and nobody blocks any more. Thread-safe.
  void end();

  // By the transport, on any one thread.
  void opened();
  // Blocks while the listener is too far behind.
  void received(std::span<const unsigned char> bytes);
  // For a thread that must not block: calls `action` once received() would not, perhaps at once,
  // perhaps on the executor.
  void whenCapacity(std::function<void()> action);
  void closed(const std::string& why);
  void unavailable(const std::string& why);
  void refused(const std::string& why);

 private:
  using Event = std::function<void(ChannelListener&)>;

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
