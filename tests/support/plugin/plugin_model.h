// PluginModel: what the plug-in has to do, said a second time and independently of its code: for
// each step of a host, a camera service or a VM, everything that can be seen of it.
#pragma once

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "support/plugin/expected_lines.h"
#include "support/plugin/log_record.h"
#include "support/plugin/model_steps.h"
#include "support/plugin/wire.h"

namespace lumsar::test {

// All that can be seen of one step.
struct Behaviour {
  std::optional<int> status;
  Lines log;       // on the calling thread
  Lines eventLog;  // on event threads
  Lines ipc;
  std::vector<Bytes> sent;
  Lines events;

  bool operator==(const Behaviour&) const = default;
  std::string text() const;
};

class PluginModel {
 public:
  // Whether the service can reach the plug-in at all.
  bool hasClient() const { return m_hasClient; }
  unsigned int token() const { return m_token; }

  // What the step has to show. `newToken` is what its HELLO carries, if it makes one.
  Behaviour expect(const Step& step, std::optional<unsigned int> newToken);

  // A mistake made on purpose: closing the SPICE channel leaves it open.
  bool closingIsForgotten = false;

 private:
  void init(const Step& step);
  void rdpInit(const Step& step);
  void start(const std::string& prefix, const std::string& connectedTo, const std::string& ipcName,
             const std::string& libDir, const std::string& vmId, const std::string& config,
             std::optional<Policy> policy);
  void channelEvent(int event);
  void rdpChannelEvent(int event);
  void deInit();
  void command(const Step& step);
  int dispatch(const Step& step, const std::string& text);
  int transfer(std::uint32_t type, const Bytes& payload);
  int list(ListWith with);
  void vmHello(const VmHello& hello);
  void vmMessage(const Bytes& bytes);
  int shareAll(int session);
  int serviceMessage(Bytes bytes);
  int relay(Bytes bytes);
  void closed();

  void raise(int event, const Bytes& data, bool hasData);
  int sendIpc(std::uint32_t type, const Bytes& payload);
  bool asksConnected();
  void unredirectAll();
  void sendRdpHello();
  std::string policyText() const;

  bool m_initialised = false;
  bool m_hasClient = false;
  bool m_connected = false;
  bool m_channelOpen = false;
  bool m_hasSpiceCallables = false;
  bool m_hasRdpSend = false;
  bool m_isRdp = false;
  unsigned int m_token = 0;
  std::string m_vmId;
  std::string m_version = "1.0";
  std::optional<Policy> m_policy;
  std::deque<int> m_sendResults;
  int m_hostResult = 0;
  int m_connectResult = 0;

  std::optional<unsigned int> m_newToken;
  Behaviour m_now;
};

}  // namespace lumsar::test
