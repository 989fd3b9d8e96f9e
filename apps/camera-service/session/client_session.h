// ClientSession: one connected host and the VM that it stands for: its policy, shares and commands.
//
//   commands (types 1 to 5, 7, 9) --> ClientSession --> Share --> CameraStream
//   the VM's data (type 6) -----------/    \--> device changes (type 8)
//
#pragma once

#include <QJsonObject>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/rate_limit.h"
#include "camera/catalogue.h"
#include "ipc/server/server.h"
#include "rules/access_rules.h"
#include "rules/policy.h"
#include "session/device_change.h"
#include "session/share.h"
#include "transports/direct_networks.h"
#include "transports/tcp_transport.h"

namespace lumsar::service {

// The service's own connections to VMs: so many of a host at a time, and so many new ones within a
// time. A VM needs one; more are for searching a network.
inline constexpr std::size_t kMaxConnections = 4;
inline constexpr int kMaxConnects = 8;
inline constexpr std::chrono::seconds kConnectsTime{10};
inline constexpr std::size_t kLongestCommand = 1U << 20U;
// What clients and connections leave to the cameras.
inline constexpr std::size_t kSpareDescriptors = 32;

// What all sessions use, owned by Service.
struct SessionContext {
  asio::io_context& io;
  ipc::IpcServer& server;
  Catalogue& catalogue;
  StreamTable& streams;
  const AccessRules& access;
  const std::string& accessLine;
  const DirectNetworks& direct;
};

class ClientSession {
 public:
  using TransportPtr = std::shared_ptr<VmTransport>;
  // What a "sharetcp" asks for, as in the command.
  struct TcpTarget {
    std::string camera;
    std::string ip;
    std::string port;

    bool operator==(const TcpTarget&) const = default;
  };
  // A share of a camera that is not there. A connection to the VM is made once the camera is.
  struct Wait {
    TransportPtr transport;           // of the share that ended when the camera was unplugged
    std::optional<TcpTarget> target;  // of one that has not begun; without it, through the host
  };
  // By the camera's id; one that has never been there by what the command called it.
  using Waits = std::map<std::string, Wait>;

  ClientSession(SessionContext context, ipc::ClientId client, const std::string& name);
  ~ClientSession();
  ClientSession(const ClientSession&) = delete;
  ClientSession& operator=(const ClientSession&) = delete;

  void onMessage(base::Bytes message);
  // A command that lumsar-cameras gives on the host's behalf: what became of it.
  DeviceChange control(const QJsonObject& command);

  // Notifications of cameras, for the host and its VM.
  void onPlugged(const Camera& camera);
  void onUnplugged(const Camera& camera);
  void onCameraFailed(const Camera& camera, const std::string& why);
  void tell(const DeviceChange& change);

  ipc::ClientId client() const { return m_client; }
  const std::string& name() const { return m_name; }
  const std::string& vmId() const { return m_vmId; }
  const Share* shareOf(const std::string& cameraId) const;
  const std::map<std::string, std::unique_ptr<Share>>& shares() const { return m_shares; }
  // Why this camera must not be shared with the VM; empty when it may.
  std::string refusal(const CameraInfo& camera) const;
  const Waits& waiting() const { return m_waiting; }
  // What a waiting share goes through, as VmTransport::name().
  static std::string transportName(const Wait& wait);
  const std::deque<DeviceChange>& refusals() const { return m_refusals; }
  // What such commands have changed since the host's own last one: whether a camera is shared, by
  // its id; of the empty id, that no other is.
  const std::map<std::string, bool>& controls() const { return m_controls; }
  const std::vector<std::string>& policyNotes() const { return m_policyNotes; }

 private:
  void onCommand(std::uint32_t type, base::Bytes payload);
  void onPolicy(base::Bytes payload);
  void onVmData(VmTransport* transport, base::Bytes record);
  void onVmEncodings(VmTransport& transport, base::Bytes body);
  void logShortRecord();
  void onVmRecord(const CameraDataHeader& header, base::Bytes body, Share& share);

  void carryOut(std::uint32_t type, const QJsonObject& command);
  void forgetControls(std::uint32_t type, const QJsonObject& command);
  void share(const QJsonObject& command);
  void shareAll(int session);
  void unshare(const std::string& reference);
  void unshareAll();
  bool mayShare(const std::string& reference);
  const Camera* presentCamera(const std::string& reference) const;
  void shareCamera(const Camera& camera, const TransportPtr& transport);
  void dropShare(const std::string& cameraId, const std::string& why);

  bool mayComeLater(const std::string& reference) const;
  void wait(const std::string& reference, const std::optional<TcpTarget>& target);
  std::optional<Wait> takeWait(const Camera& camera);
  TransportPtr transportOf(const Wait& wait);
  bool isExceptedFromAll(const Camera& camera) const;
  bool exceptFromAll(const std::string& reference);

  static TcpTarget tcpTarget(const QJsonObject& command);
  void connectVm(const TcpTarget& target);
  bool hasFailed(const TcpTarget& target);
  bool isValid(const TcpTarget& target);
  bool mayConnect(const TcpTarget& target);
  std::shared_ptr<TcpTransport> tcpTransport(const TcpTarget& target);
  void onTcpReady(const std::string& address);
  void onTcpEnd(const std::string& address, const TcpTarget& target, const std::string& why);
  void dropIdleTcpTransports();

  bool setVmId(const std::string& vmId);
  // Tells the host, logs it and keeps it for the camera list.
  void report(DeviceChange change);
  // What was refused of this camera, or of none, holds no longer.
  void forgetRefusals(const std::string& camera);
  std::string vmText() const { return "VM '" + m_vmId + "'"; }

  const SessionContext m_context;
  const ipc::ClientId m_client;
  const std::string m_name;
  std::string m_vmId;
  Policy m_policy;
  std::vector<std::string> m_policyNotes;
  const TransportPtr m_hostTransport;
  std::map<std::string, std::shared_ptr<TcpTransport>> m_tcpTransports;  // by address
  std::map<std::string, std::unique_ptr<Share>> m_shares;                // by camera id
  Waits m_waiting;                                                       // for their cameras
  LimitedChanges m_encodingChanges;
  base::RateLimit m_connects{kMaxConnects, kConnectsTime};
  std::optional<TcpTarget> m_failedTarget;  // of a "sharetcp" that is still to share
  bool m_shareAll = false;                  // cameras plugged in later are shared as well
  std::set<std::string> m_exceptFromAll;    // but not these, unshared one by one
  bool m_loggedShortRecord = false;
  std::deque<DeviceChange> m_refusals;  // the latest of each camera, oldest first
  std::map<std::string, bool> m_controls;
  DeviceChange* m_verdict = nullptr;  // where a refusal goes that the host has not caused
};

}  // namespace lumsar::service
