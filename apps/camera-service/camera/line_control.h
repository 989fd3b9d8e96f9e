// LineControl: finds out what the line to a VM takes, from when frames left for it and when it says
// that it has received them. It is about delay: frames that wait for the line lower what may be
// sent, at once; while none waits, it rises slowly, until the line is no limit any more.
//
//   left  |--- base: the fastest lately ---|--- waited ---| reported as received
//
// The VM reports the frames that it is asked to: a few a second while the line is no limit, since
// each report costs as much as a frame, and more as soon as that may not be so.
//
// All times are µs on one steady clock, the service's own: the VM's clock does not matter.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>

namespace lumsar::service {

// Bytes a second over the last moment.
class ByteRate {
 public:
  void add(std::size_t bytes, std::int64_t now);
  double rate(std::int64_t now);
  std::size_t size() const { return m_pieces.size(); }  // what it holds

 private:
  void forget(std::int64_t now);

  struct Piece {
    std::int64_t time;
    std::size_t bytes;
  };
  std::deque<Piece> m_pieces;
  std::int64_t m_begin = 0;
};

class LineControl {
 public:
  // Nothing is known of the line any more.
  void reset() { *this = LineControl(); }

  // Whether the VM is to be asked to report this frame.
  bool onSent(std::uint32_t sequence, std::size_t bytes, std::int64_t now);
  // The VM has this frame, and those before it as far as they were not dropped on the way. 0: it
  // has none yet, but will tell.
  // `wanted`: bytes a second that would be sent if the line were no limit.
  void onReceived(std::uint32_t sequence, std::int64_t now, double wanted);

  // For how long nothing more should have been sent, as too much is on the way; else 0.
  std::int64_t fullFor(std::int64_t now);
  // For how long the VM has not reported what it was asked to.
  std::int64_t silentFor(std::int64_t now) const;

  // Bytes a second; 0 while the line is no limit.
  double target() const { return m_target; }
  // How long a frame waited for the line when that was lowered last.
  std::int64_t waited() const { return m_waited; }
  // Whether the VM reports what it receives; without that there is never a limit.
  bool reports() const { return m_reports; }
  std::size_t bytesOnTheWay() const { return m_bytesOnTheWay; }

 private:
  struct Sent {
    std::uint32_t sequence;
    std::size_t bytes;
    std::int64_t time;
    bool isAsked;
  };
  // The lowest value of the last 10 to 20 s.
  class Lowest {
   public:
    void add(std::int64_t value, std::int64_t now);
    std::int64_t get() const;

   private:
    std::int64_t m_since = 0;
    std::int64_t m_now = -1;
    std::int64_t m_before = -1;
  };

  bool asks(std::int64_t now) const;
  std::deque<Sent>::const_iterator oldestAsked() const;
  std::int64_t waiting(std::int64_t delay) const;
  void judge(std::uint32_t sequence, std::int64_t delay, std::int64_t now);
  bool isPersistent(bool late, std::int64_t now);
  void lower(std::int64_t waited, std::int64_t now);
  void rise(std::int64_t now, double wanted);
  bool isTooMuch() const;
  bool isFull(std::int64_t now) const;
  std::int64_t longestInTime() const;

  std::deque<Sent> m_onTheWay;  // oldest first
  std::size_t m_bytesOnTheWay = 0;
  std::uint64_t m_carried = 0;  // frames
  std::uint32_t m_lastSent = 0;
  std::uint32_t m_judgeAfter = 0;            // frames up to this one say nothing new
  std::optional<std::uint32_t> m_sentInGap;  // the last one, until a later one has arrived
  bool m_reports = false;
  Lowest m_base;
  ByteRate m_sent;
  ByteRate m_received;
  double m_target = 0;
  std::int64_t m_waited = 0;
  std::int64_t m_lastReport = 0;
  std::int64_t m_lastAsked = 0;
  std::int64_t m_lateSince = 0;  // 0 when the last frame was in time
  std::int64_t m_lastChange = 0;
  std::int64_t m_fullSince = 0;
};

}  // namespace lumsar::service
