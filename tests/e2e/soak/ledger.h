// What was sent and what arrived, frame by frame: each is hashed where it leaves the camera service
// and where it reaches the guest agent.
#pragma once

#include <chrono>
#include <map>
#include <mutex>
#include <string>
#include <tuple>
#include <vector>

#include "support/messages.h"

namespace lumsar::test {

class Ledger {
 public:
  using Clock = std::chrono::steady_clock;

  // For the relays' threads; ignores whatever is not a frame.
  void onSent(View message);
  void onArrived(View message);

  // Between these two calls a frame may get lost.
  void beginDisturbance();
  void endDisturbance();

  struct Counts {
    long sent = 0;
    long arrived = 0;
    long wrong = 0;      // other bytes, or never sent
    long lostWhile = 0;  // of a disturbance
    long lostOtherwise = 0;
    std::string lost = {};  // the latter, a line each
  };
  // With all that has been sent and has not arrived counted as lost.
  Counts counts() const;
  long arrivedFrom(const std::string& camera) const;
  void onAnnounced(View message);

 private:
  using Key = std::tuple<std::uint32_t, std::uint32_t, std::uint64_t>;  // camera, sequence, time
  std::string describe(const Key& frame, Clock::time_point when) const;
  struct Sent {
    unsigned long long hash;
    Clock::time_point when;
  };
  struct Period {
    Clock::time_point begin;
    Clock::time_point end;
  };

  mutable std::mutex m_mutex;
  std::map<Key, Sent> m_onTheWay;
  std::map<std::uint32_t, std::string> m_names;
  std::map<std::string, long> m_arrivedFrom;
  std::vector<Period> m_disturbances;
  Counts m_counts;
};

}  // namespace lumsar::test
