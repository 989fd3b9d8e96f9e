// Host: one connected host and the VM that it stands for: its policy, its shares, its commands.
//
//   command (types 1 to 5, 7, 9) --> Host --> Share --> CameraStream
//   VM's data (type 6) -----------/      \--> refusals, as device changes (type 8)
//
// Made and owned by Service; bound to the io_context's thread.
#ifndef LUMSAR_CAMERA_SERVICE_SESSION_CLIENT_SESSION_H
#define LUMSAR_CAMERA_SERVICE_SESSION_CLIENT_SESSION_H

#include <QJsonObject>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "camera/catalogue.h"
#include "ipc/server/server.h"
#include "links/tcp_link.h"
#include "session/access_rules.h"
#include "session/device_change.h"
#include "session/policy.h"
#include "session/share.h"

namespace lumsar::service {

// What all hosts share, owned by Service.
struct HostContext {
  asio::io_context& io;
  ipc::IpcServer& server;
  Catalogue& catalogue;
  StreamTable& streams;
  const AccessRules& access;
};

class Host {
 public:
  Host(HostContext context, ipc::ClientId client, const std::string& name);
  ~Host();
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  void onMessage(std::span<const unsigned char> message);

  // News of cameras, for the host and its VM.
  void onPlugged(const Camera& camera);
  void onUnplugged(const Camera& camera);
  void onTrouble(const Camera& camera, const std::string& why);
  void tell(const DeviceChange& change);

  ipc::ClientId client() const { return m_client; }
  const std::string& name() const { return m_name; }
  const std::string& vmId() const { return m_vmId; }
  const Share* shareOf(const std::string& cameraId) const;
  const std::map<std::string, std::unique_ptr<Share>>& shares() const { return m_shares; }
  // Why this camera must not be shared with the VM; empty when it may.
  std::string refusal(const CameraInfo& camera) const;
  bool waitsFor(const std::string& cameraId) const { return m_waiting.contains(cameraId); }
  const std::deque<DeviceChange>& refusals() const { return m_refusals; }
  const std::vector<std::string>& policyNotes() const { return m_policyNotes; }

 private:
  using LinkPtr = std::shared_ptr<VmLink>;

  void onCommand(std::uint32_t type, std::span<const unsigned char> payload);
  void onPolicy(std::span<const unsigned char> payload);
  void onVmData(const VmLink* link, std::span<const unsigned char> record);
  void skipShort();
  void onVmRecord(const CameraDataHeader& header, std::span<const unsigned char> body,
                  Share& share);

  void share(const QJsonObject& command);
  void shareAll(const QJsonObject& command);
  void unshare(const QJsonObject& command);
  void unshareAll(const std::string& why);
  void connectVm(const QJsonObject& command);
  bool failedToConnect(const QJsonObject& command);
  const Camera* wantedCamera(const QJsonObject& command);
  void shareCamera(const Camera& camera, const LinkPtr& link);
  void dropShare(const std::string& cameraId, const std::string& why);

  std::shared_ptr<TcpLink> tcpLink(const QJsonObject& command);
  void onTcpReady(const std::string& address);
  void onTcpEnd(const std::string& address, const QJsonObject& command, const std::string& why);
  void dropIdleTcpLinks();

  void rename(const std::string& vmId);
  void refuse(DeviceChange change);
  std::string vmText() const { return "VM '" + m_vmId + "'"; }

  const HostContext m_context;
  const ipc::ClientId m_client;
  const std::string m_name;
  std::string m_vmId;
  Policy m_policy;
  std::vector<std::string> m_policyNotes;
  const LinkPtr m_hostLink;
  std::map<std::string, std::shared_ptr<TcpLink>> m_tcpLinks;  // by address
  std::map<std::string, std::unique_ptr<Share>> m_shares;      // by camera id
  std::map<std::string, LinkPtr> m_waiting;  // shared, unplugged: shared again when it comes back
  QJsonObject m_refusedConnect;              // a "sharetcp" whose first half has failed already
  bool m_shareAll = false;                   // cameras plugged in later are shared as well
  std::set<std::string> m_notOfAll;          // but not these, taken back one by one
  bool m_saidTooShort = false;
  std::deque<DeviceChange> m_refusals;  // the latest of each camera, oldest first
};

}  // namespace lumsar::service

#endif
