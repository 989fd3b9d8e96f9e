// What comes from a client's host and VM, and what they are told. The commands are in
// session_commands.cpp and session_tcp.cpp.
#include "session/client_session.h"

#include <algorithm>
#include <utility>

#include "base/log.h"
#include "base/text/format.h"
#include "base/text/utf8.h"
#include "capture/encoder.h"
#include "json/json.h"
#include "lumsar/vdi_ipc.h"
#include "protocol/camera_record.h"
#include "transports/host_transport.h"

namespace lumsar::service {
namespace {

constexpr std::size_t kMaxRefusals = 16;
constexpr std::size_t kLongestVmId = 1024;
// Of a command's texts in what is told of them.
constexpr std::size_t kLongestText = 4096;
// A client's name holds no more of a VM's id than this; a command or policy tells all of it.
constexpr std::size_t kLongestName = kClientNameSize - 1;

}  // namespace

ClientSession::ClientSession(SessionContext context, ipc::ClientId client, const std::string& name)
    : m_context(context),
      m_client(client),
      m_name(name),
      m_vmId(name),
      m_hostTransport(std::make_shared<HostTransport>(context.server, client)),
      m_encodingChanges(context.io, kMaxSizeChanges, kSizeChangesTime) {}

ClientSession::~ClientSession() {
  for (const auto& [id, share] : m_shares) share->remove("its host has disconnected");
  for (const auto& [address, transport] : m_tcpTransports) transport->close();
}

const Share* ClientSession::shareOf(const std::string& cameraId) const {
  const auto found = m_shares.find(cameraId);
  return found == m_shares.end() ? nullptr : found->second.get();
}

std::string ClientSession::refusal(const CameraInfo& camera) const {
  const bool mayBeCut = m_vmId == m_name && m_name.size() >= kLongestName;
  return m_context.access.refusal(camera, m_vmId, mayBeCut);
}

void ClientSession::onMessage(base::Bytes message) {
  const RedirMsgHeader header = readHeader(message.data());
  const auto payload = message.subspan(kHeaderSize);
  if (header.type == IPC_MSG_DATA) return onVmData(m_hostTransport.get(), payload);
  if (payload.size() > kLongestCommand) {
    return report(
        commandRefused(base::text("the command has {} bytes; it may have at most {} bytes",
                                  payload.size(), kLongestCommand)));
  }
  if (header.type == IPC_MSG_POLICY) return onPolicy(payload);
  onCommand(header.type, payload);
}

void ClientSession::onPolicy(base::Bytes payload) {
  PolicyReading reading = readPolicy(base::textOf(payload), h264Available());
  if (!reading.policy) {
    return report(commandRefused(reading.error + "; the previous policy stays"));
  }
  if (!setVmId(reading.policy->vmId)) return;
  m_policy = std::move(*reading.policy);
  forgetRefusals({});
  base::logInfo("{}: new policy with {} rule(s)", vmText(), m_policy.rules.size());
  for (const auto& [id, share] : m_shares) share->setRule(m_policy.ruleFor(share->camera().info));
  // The same document comes with every handshake of the VM; its corrections are told once.
  const bool known = reading.notes == m_policyNotes;
  m_policyNotes = std::move(reading.notes);
  if (known) return;
  for (const std::string& note : m_policyNotes) {
    base::logWarning("{}: policy: {}", vmText(), note);
    tell(policyCorrected(note));
  }
}

void ClientSession::onVmData(VmTransport* transport, base::Bytes record) {
  const auto header = take<CameraDataHeader>(record);
  if (!header) return logShortRecord();
  if (header->kind == static_cast<std::uint16_t>(CameraDataKind::Encodings)) {
    return onVmEncodings(*transport, record);
  }
  for (const auto& [id, share] : m_shares) {
    if (share->camera().number != header->camera || share->transport().get() != transport) continue;
    return onVmRecord(*header, record, *share);
  }
  base::logDebug("{} names camera {}, which is not shared with it", vmText(),
                 std::uint32_t{header->camera});
}

// What it can show of any camera.
void ClientSession::onVmEncodings(VmTransport& transport, base::Bytes body) {
  const auto encodings = protocol::readEncodings(body);
  const bool h264 = std::ranges::find(encodings, kEncodingH264) != encodings.end();
  if (h264 == transport.showsH264()) return;
  transport.setShowsH264(h264);
  m_encodingChanges.apply([this, h264] {
    base::logInfo("{} {} H264", vmText(), h264 ? "can show" : "does not show");
    for (const auto& [id, share] : m_shares) share->onEncodingsChanged();
  });
}

// A VM may send any number of them.
void ClientSession::logShortRecord() {
  if (std::exchange(m_loggedShortRecord, true)) return;
  base::logWarning("{} sent a camera record that is too short; dropped (logged once)", vmText());
}

void ClientSession::onVmRecord(const CameraDataHeader& header, base::Bytes body, Share& share) {
  switch (static_cast<CameraDataKind>(header.kind)) {
    case CameraDataKind::Start:
      return share.start();
    case CameraDataKind::Stop:
      return share.stop();
    case CameraDataKind::KeyFrameRequest:
      return share.requestKeyFrame();
    case CameraDataKind::Statistics:
      if (const auto statistics = take<CameraStatistics>(body)) share.onStatistics(*statistics);
      return;
    case CameraDataKind::Received:
      if (const auto received = take<CameraReceived>(body)) share.onReceived(received->sequence);
      return;
    case CameraDataKind::WantedSize:
      if (const auto size = take<CameraSize>(body)) share.limitSize({size->width, size->height});
      return;
    default:
      return;  // newer than this service
  }
}

void ClientSession::onPlugged(const Camera& camera) {
  const std::optional<Wait> waited = takeWait(camera);
  if (const std::string denied = refusal(camera.info); !denied.empty()) {
    if (waited) report(cameraRefused(camera, denied));
    return base::logInfo("camera '{}' is withheld from {}: {}", camera.info.id, vmText(), denied);
  }
  const bool asAll = !waited && m_shareAll && !isExceptedFromAll(camera);
  std::string reason = "plugged in";
  if (waited) {
    const char* again = waited->transport ? " again" : "";
    reason = base::text("plugged in{0} and shared{0} with {1}", again, vmText());
  } else if (asAll) {
    reason += " and shared with " + vmText() + ", as all cameras are";
  }
  tell(cameraAdded(camera, reason));
  if (asAll) shareCamera(camera, m_hostTransport);
  if (!waited) return;
  if (const TransportPtr transport = transportOf(*waited)) shareCamera(camera, transport);
}

void ClientSession::onUnplugged(const Camera& camera) {
  const std::string& id = camera.info.id;
  if (const auto share = m_shares.extract(id)) {
    share.mapped()->remove("unplugged");
    m_waiting[id] = {share.mapped()->transport(), std::nullopt};
  }
  if (refusal(camera.info).empty()) tell(cameraRemoved(camera, "unplugged"));
}

void ClientSession::onCameraFailed(const Camera& camera, const std::string& why) {
  if (shareOf(camera.info.id) != nullptr) tell(captureFailed(camera, why));
}

// False when the command cannot be carried out for it.
bool ClientSession::setVmId(const std::string& vmId) {
  if (vmId.size() > kLongestVmId) {
    report(commandRefused(base::text("the vmId is longer than {} bytes", kLongestVmId)));
    return false;
  }
  if (!vmId.empty()) m_vmId = vmId;
  return true;
}

void ClientSession::tell(const DeviceChange& change) {
  DeviceChange addressed = change;
  addressed.vmId = m_vmId;
  const std::string text = json::compact(toJson(addressed));
  base::logDebug("to the host of {}: {}", vmText(), text);
  m_context.server.send(m_client,
                        {protocol::Message(IPC_MSG_DEVICE_CHANGE, {base::bytesOf(text)})});
}

void ClientSession::report(DeviceChange change) {
  change.camera = base::shortened(change.camera, kLongestText);
  change.reason = base::shortened(change.reason, kLongestText);
  const std::string camera = change.camera.empty() ? "" : " " + change.camera;
  base::logWarning("{}: {}{}: {}", vmText(), change.change, camera, change.reason);
  if (m_verdict != nullptr) {
    *m_verdict = std::move(change);
    return;
  }
  tell(change);
  forgetRefusals(change.camera);
  m_refusals.push_back(std::move(change));
  if (m_refusals.size() > kMaxRefusals) m_refusals.pop_front();
}

void ClientSession::forgetRefusals(const std::string& camera) {
  std::erase_if(m_refusals, [&](const DeviceChange& old) { return old.camera == camera; });
}

}  // namespace lumsar::service
