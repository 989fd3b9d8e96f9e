#include "session/reports.h"

#include <unistd.h>

#include <QJsonArray>

#include "base/version.h"
#include "json/json.h"

namespace lumsar::service {
namespace {

using json::qt;

QString usbId(std::uint16_t id) {
  return QStringLiteral("%1").arg(id, 4, 16, QLatin1Char('0'));
}

qint64 number(std::uint64_t value) {
  return static_cast<qint64>(value);
}

QJsonObject describeFormat(const CameraFormat& format) {
  return {{"encoding", qt(format.encoding)},
          {"width", format.width},
          {"height", format.height},
          {"rate", format.rate()}};
}

QJsonArray sharedWith(const Camera& camera, const SessionTable& sessions) {
  QJsonArray vms;
  for (const auto& [id, session] : sessions) {
    if (session->shareOf(camera.info.id) != nullptr) vms.append(qt(session->vmId()));
  }
  return vms;
}

QJsonObject describeCamera(const Camera& camera, const SessionContext& context,
                           const SessionTable& sessions) {
  const CameraStream* stream = context.streams.find(camera.number);
  QJsonArray formats;
  for (const CameraFormat& format : camera.info.formats) formats.append(describeFormat(format));
  return {{"id", qt(camera.info.id)},
          {"number", number(camera.number)},
          {"name", qt(camera.info.name)},
          {"vendorId", usbId(camera.info.vendorId)},
          {"productId", usbId(camera.info.productId)},
          {"formats", formats},
          {"present", camera.present},
          {"sharedWith", sharedWith(camera, sessions)},
          {"inUse", stream != nullptr && stream->consumers() > 0}};
}

QJsonObject cameraStatus(const Camera& camera, const SessionContext& context,
                         const SessionTable& sessions) {
  QJsonObject object = describeCamera(camera, context, sessions);
  object.remove("formats");
  const CameraStream* stream = context.streams.find(camera.number);
  const CameraStream::Counters counters =
      stream == nullptr ? CameraStream::Counters{} : stream->counters();
  object["running"] = stream != nullptr && stream->running();
  object["readers"] = stream == nullptr ? 0 : static_cast<int>(stream->consumers());
  object["frames"] = number(counters.frames);
  object["bytes"] = number(counters.bytes);
  object["damagedFrames"] = number(counters.damaged);
  object["encodeMicroseconds"] = static_cast<qint64>(counters.encodeTime);
  if (const CapturePlan* plan = stream == nullptr ? nullptr : stream->plan()) {
    object["width"] = plan->width;
    object["height"] = plan->height;
    object["quality"] = plan->quality;
    object["treatment"] = qt(stream->treatment());
  }
  return object;
}

QJsonObject shareStatus(const Share& share) {
  const Share::Counters& counters = share.counters();
  return {{"camera", qt(share.camera().info.id)}, {"link", qt(share.transport()->name())},
          {"started", share.started()},           {"frames", number(counters.frames)},
          {"bytes", number(counters.bytes)},      {"dropped", number(counters.dropped)},
          {"rateLimit", share.rateLimit()},       {"line", qt(share.line())}};
}

QJsonArray waitingShares(const ClientSession& session) {
  QJsonArray shares;
  for (const auto& [camera, wait] : session.waiting()) {
    shares.append(
        QJsonObject{{"camera", qt(camera)}, {"link", qt(ClientSession::transportName(wait))}});
  }
  return shares;
}

QJsonObject hostStatus(const ClientSession& session, const SessionContext& context) {
  QJsonArray shares;
  for (const auto& [id, share] : session.shares()) shares.append(shareStatus(*share));
  const ipc::MessageStream::Counters counters = context.server.counters(session.client());
  return {{"client", number(session.client())},
          {"name", qt(session.name())},
          {"vmId", qt(session.vmId())},
          {"bytesIn", number(counters.bytesIn)},
          {"bytesOut", number(counters.bytesOut)},
          {"bytesQueued", number(counters.bytesQueued)},
          {"framesDropped", number(counters.framesDropped)},
          {"shares", shares},
          {"waiting", waitingShares(session)}};
}

// What does not work at the moment, and so is not in this host's list of cameras.
std::vector<DeviceChange> failures(const ClientSession& session, const SessionContext& context,
                                   const std::map<std::string, std::string>& unreadable) {
  std::vector<DeviceChange> changes;
  for (const auto& [id, why] : unreadable) {
    CameraInfo info;
    info.id = id;
    if (session.refusal(info).empty()) changes.push_back(fileRefused(id, why));
  }
  for (const auto& [id, share] : session.shares()) {
    const CameraStream* stream = context.streams.find(share->camera().number);
    if (stream == nullptr || stream->error().empty()) continue;
    changes.push_back(captureFailed(share->camera(), stream->error()));
  }
  for (const auto& [reference, wait] : session.waiting()) {
    if (context.catalogue.find(reference) != nullptr) continue;
    changes.push_back(cameraAwaited(reference, nullptr));
  }
  return changes;
}

}  // namespace

QJsonObject cameraList(const ClientSession& session, const SessionContext& context,
                       const SessionTable& sessions,
                       const std::map<std::string, std::string>& unreadable) {
  QJsonArray cameras;
  for (const Camera* camera : context.catalogue.all()) {
    if (!session.refusal(camera->info).empty()) continue;
    // One that is unplugged is listed only to the host whose share waits for it.
    if (!camera->present && !session.waiting().contains(camera->info.id)) continue;
    QJsonObject object = describeCamera(*camera, context, sessions);
    // Of several VMs of one name each has its own.
    const Share* own = session.shareOf(camera->info.id);
    object["sharedHere"] = own != nullptr || session.waiting().contains(camera->info.id);
    object["inUseHere"] = own != nullptr && own->consumes();
    object["framesHere"] = number(own == nullptr ? 0 : own->counters().frames);
    cameras.append(object);
  }
  QJsonArray refusals;
  for (const DeviceChange& change : session.refusals()) refusals.append(toJson(change));
  for (const DeviceChange& change : failures(session, context, unreadable)) {
    QJsonObject state = toJson(change);
    state["state"] = true;  // not what became of a command
    refusals.append(state);
  }
  QJsonArray notes;
  for (const std::string& note : session.policyNotes()) notes.append(qt(note));
  QJsonArray controls;
  for (const auto& [camera, shared] : session.controls()) {
    controls.append(QJsonObject{{"camera", qt(camera)}, {"shared", shared}});
  }
  return {
      {"cameras", cameras}, {"refusals", refusals}, {"controls", controls}, {"policyNotes", notes}};
}

QJsonObject statusReport(const SessionContext& context, const SessionTable& sessions,
                         std::chrono::steady_clock::duration uptime) {
  QJsonArray cameras;
  for (const Camera* camera : context.catalogue.all()) {
    cameras.append(cameraStatus(*camera, context, sessions));
  }
  QJsonArray hostList;
  for (const auto& [id, session] : sessions) hostList.append(hostStatus(*session, context));
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(uptime).count();
  return {{"version", base::kVersion},
          {"pid", static_cast<qint64>(::getpid())},
          {"socket", qt(context.server.path())},
          {"uptimeSeconds", static_cast<qint64>(seconds)},
          {"cameras", cameras},
          {"hosts", hostList}};
}

}  // namespace lumsar::service
