// Two chains, one SPICE and one RDP, for as long as is wanted, of which something is killed,
// started again, unplugged or plugged in every few seconds. In each role one process lives
// throughout.
#pragma once

#include <atomic>
#include <chrono>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "soak/soak_chain.h"
#include "soak/usage.h"

namespace lumsar::test {

class Soak {
 public:
  Soak(const std::string& bin, const std::string& still, unsigned seed,
       const std::atomic<bool>& interrupted);

  // Returns what was wrong.
  std::string run(std::chrono::milliseconds duration);
  std::string summary() const;
  std::string logs() const { return m_spice.logs() + m_rdp.logs(); }

 private:
  void begin(SoakChain& chain);
  void disturb();
  void restart(SoakChain& chain, Part part, int signal);
  void hotPlug(SoakChain& chain);
  void finish(SoakChain& chain);
  void awaitFrames(int count, const char* what);
  void await(const std::function<bool()>& condition, const std::string& what);
  void checkUsage() const;
  void showProgress() const;

  const std::atomic<bool>& m_interrupted;
  std::mt19937 m_random;
  SoakChain m_spice;
  SoakChain m_rdp;
  std::vector<Usage> m_usages;
  std::map<std::string, int> m_disturbances;
  std::chrono::steady_clock::time_point m_begin = std::chrono::steady_clock::now();
  std::chrono::steady_clock::time_point m_nextSample = m_begin;
};

}  // namespace lumsar::test
