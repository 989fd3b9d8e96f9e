// A whole chain whose frames are entered in a ledger at both ends: between the camera service and
// the host, and between the host and the guest agent.
#pragma once

#include <array>
#include <functional>
#include <memory>
#include <string>

#include "chain/chain.h"
#include "chain/relay.h"
#include "soak/ledger.h"

namespace lumsar::test {

class SoakChain {
 public:
  SoakChain(std::string bin, std::string protocol, std::string still);

  void start(Part part);
  Process& of(Part part) { return *m_parts.at(part); }
  bool has(Part part) const { return m_parts.contains(part); }
  // Which the host knows by name, as its user would.
  void share();
  void plug();
  void unplug();
  bool isPlugged() const;
  // How many frames have come from the camera of which the fewest have.
  long framesOfEach() const;
  const std::string& protocol() const { return m_protocol; }
  // Frames that the hosts have dropped and counted, damaged frames at the agents; so far as those
  // that have ended have said.
  long droppedByHosts() const { return m_dropped; }
  long damaged() const { return m_damaged; }
  void forget(Part part);
  // Asks the host how many frames it has dropped: one that is killed does not say so by itself.
  void noteDropped();
  // The end of what each running part has written.
  std::string logs() const;

  Ledger ledger;

 private:
  Process::Words commandOf(Part part) const;

  const std::string m_bin;
  const std::string m_protocol;
  const std::string m_still;
  TemporaryDirectory m_directory;
  long m_dropped = 0;
  long m_damaged = 0;
  std::unique_ptr<Relay> m_towardsService;
  std::unique_ptr<Relay> m_towardsAgent;
  std::map<Part, std::unique_ptr<Process>> m_parts;
};

}  // namespace lumsar::test
