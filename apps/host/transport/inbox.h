// Inbox: hands what a channel library reports over to a Transport::Listener on the main loop, in
// order. Filled on the library's one thread, emptied on the main loop. When the main loop lags
// behind by kMaxBytes the filling thread waits, so that the other side is slowed down instead of
// filling this machine's memory.
#ifndef LUMSAR_HOST_TRANSPORT_INBOX_H
#define LUMSAR_HOST_TRANSPORT_INBOX_H

#include <asio/io_context.hpp>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include "transport/transport.h"

namespace lumsar::host {

class Inbox : public std::enable_shared_from_this<Inbox> {
 public:
  static constexpr std::size_t kMaxBytes = 8U << 20U;

  explicit Inbox(asio::io_context& loop) : m_loop(loop) {}

  // On the main loop. Null ends the delivery: what waits is dropped, nobody waits any more.
  void listen(Transport::Listener* listener);

  // On the library's thread.
  void opened() { put({Kind::Opened, {}, {}}); }
  void received(std::span<const unsigned char> bytes);
  void closed(std::string why) { put({Kind::Closed, {}, std::move(why)}); }
  void trouble(std::string why) { put({Kind::Trouble, {}, std::move(why)}); }
  void refused(std::string why) { put({Kind::Refused, {}, std::move(why)}); }

 private:
  enum class Kind { Opened, Received, Closed, Trouble, Refused };
  struct Event {
    Kind kind{};
    std::vector<unsigned char> bytes;
    std::string why;
  };

  bool fitsIntoLast(std::size_t size) const;
  void put(Event event);
  void deliverLater();
  void deliver();
  void handled(std::size_t size);
  static void tell(Transport::Listener& listener, const Event& event);

  asio::io_context& m_loop;
  Transport::Listener* m_listener = nullptr;  // of the main loop
  std::mutex m_mutex;
  std::condition_variable m_roomMade;
  std::deque<Event> m_events;
  std::size_t m_bytes = 0;  // not yet handled by the listener
  bool m_deliveryPosted = false;
  bool m_ended = false;
};

}  // namespace lumsar::host

#endif
