// Host: see host.h. Messages in, news out; the commands are in host_commands.cpp and host_tcp.cpp.
// Runs on the io_context's thread.
#include "session/client_session.h"

#include <utility>

#include "app/log.h"
#include "capture/encoder.h"
#include "links/host_link.h"
#include "lumsar/vdi_ipc.h"
#include "session/json.h"

namespace lumsar::service {
namespace {

constexpr std::size_t kMaxRefusals = 16;
// A client brings no more of a VM's id than this; a command or policy tells the whole.
constexpr std::size_t kLongestName = kClientNameSize - 1;

}  // namespace

Host::Host(HostContext context, ipc::ClientId client, const std::string& name)
    : m_context(context),
      m_client(client),
      m_name(name),
      m_vmId(name),
      m_hostLink(std::make_shared<HostLink>(context.server, client)) {}

Host::~Host() {
  for (const auto& [id, share] : m_shares) share->withdraw("its host is gone");
  for (const auto& [address, link] : m_tcpLinks) link->close();
}

const Share* Host::shareOf(const std::string& cameraId) const {
  const auto found = m_shares.find(cameraId);
  return found == m_shares.end() ? nullptr : found->second.get();
}

std::string Host::refusal(const CameraInfo& camera) const {
  const bool isCut = m_vmId == m_name && m_name.size() >= kLongestName;
  return m_context.access.refusal(camera, m_vmId, isCut);
}

void Host::onMessage(std::span<const unsigned char> message) {
  const RedirMsgHeader header = readHeader(message.data());
  const auto payload = message.subspan(kHeaderSize);
  switch (header.type) {
    case IPC_MSG_DATA:
      return onVmData(m_hostLink.get(), payload);
    case IPC_MSG_POLICY:
      return onPolicy(payload);
    default:
      return onCommand(header.type, payload);
  }
}

void Host::onPolicy(std::span<const unsigned char> payload) {
  PolicyReading reading = readPolicy(asText(payload), h264Available());
  if (!reading.policy) {
    return refuse({"refused", {}, nullptr, {}, reading.error + "; the former policy stays"});
  }
  m_policy = std::move(*reading.policy);
  rename(m_policy.vmId);
  logInfo(vmText(), ": new policy with ", m_policy.rules.size(), " rule(s)");
  for (const auto& [id, share] : m_shares) share->setRule(m_policy.ruleFor(share->camera().info));
  // The same document comes with every greeting of the VM; its corrections are told once.
  const bool known = reading.notes == m_policyNotes;
  m_policyNotes = std::move(reading.notes);
  if (known) return;
  for (const std::string& note : m_policyNotes) {
    logWarning(vmText(), ": policy: ", note);
    tell({"policy", {}, nullptr, {}, note});
  }
}

void Host::onVmData(const VmLink* link, std::span<const unsigned char> record) {
  const auto header = take<CameraDataHeader>(record);
  if (!header) return skipShort();
  for (const auto& [id, share] : m_shares) {
    if (share->camera().number != header->camera || share->link().get() != link) continue;
    return onVmRecord(*header, record, *share);
  }
  logDebug(vmText(), " speaks of camera ", header->camera, ", which is not shared with it");
}

// A VM may send any number of them, so they are said once.
void Host::skipShort() {
  if (std::exchange(m_saidTooShort, true)) return;
  logWarning(vmText(),
             " sent camera data that are too short; dropped, more of them without a word");
}

void Host::onVmRecord(const CameraDataHeader& header, std::span<const unsigned char> body,
                      Share& share) {
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
    default:
      return;  // newer than this service
  }
}

void Host::onPlugged(const Camera& camera) {
  const std::string& id = camera.info.id;
  if (!refusal(camera.info).empty()) {
    logInfo("camera '", id, "' is kept from ", vmText(), ": ", refusal(camera.info));
    return;
  }
  std::string reason = "plugged in";
  LinkPtr link;
  if (const auto waiting = m_waiting.extract(id)) {
    link = waiting.mapped();
    reason = "plugged in again and shared again with " + vmText();
  } else if (m_shareAll && !m_notOfAll.contains(id)) {
    link = m_hostLink;
    reason = "plugged in and shared with " + vmText() + ", as all cameras are";
  }
  tell(deviceChange("added", camera, reason));
  if (link) shareCamera(camera, link);
}

void Host::onUnplugged(const Camera& camera) {
  const std::string& id = camera.info.id;
  if (const auto share = m_shares.extract(id)) {
    share.mapped()->withdraw("unplugged");
    m_waiting[id] = share.mapped()->link();
  }
  if (refusal(camera.info).empty()) {
    tell(deviceChange("removed", camera, "unplugged"));
  }
}

void Host::onTrouble(const Camera& camera, const std::string& why) {
  if (shareOf(camera.info.id) == nullptr) return;
  tell(cameraFailed(camera, why));
}

void Host::rename(const std::string& vmId) {
  if (!vmId.empty()) m_vmId = vmId;
}

void Host::tell(const DeviceChange& change) {
  DeviceChange addressed = change;
  addressed.vmId = m_vmId;
  const std::string text = compactJson(toJson(addressed));
  logDebug("to ", vmText(), "'s host: ", text);
  m_context.server.send(m_client, {ipc::Message(IPC_MSG_DEVICE_CHANGE, text)});
}

void Host::refuse(DeviceChange change) {
  logWarning(vmText(), ": ", change.change, change.camera.empty() ? "" : " ", change.camera, ": ",
             change.reason);
  tell(change);
  std::erase_if(m_refusals, [&](const DeviceChange& old) { return old.camera == change.camera; });
  m_refusals.push_back(std::move(change));
  if (m_refusals.size() > kMaxRefusals) m_refusals.pop_front();
}

}  // namespace lumsar::service
