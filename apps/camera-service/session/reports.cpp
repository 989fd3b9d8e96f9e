// Camera list and status: see reports.h. Called on the io_context's thread.
#include "session/reports.h"

#include <unistd.h>

#include <QJsonArray>
#include <cstdio>

#include "app/log.h"
#include "session/json.h"

namespace lumsar::service {
namespace {

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

QJsonArray sharedWith(const Camera& camera, const HostTable& hosts) {
  QJsonArray vms;
  for (const auto& [id, host] : hosts) {
    if (host->shareOf(camera.info.id) != nullptr) vms.append(qt(host->vmId()));
  }
  return vms;
}

QJsonObject describeCamera(const Camera& camera, const HostContext& context,
                           const HostTable& hosts) {
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
          {"sharedWith", sharedWith(camera, hosts)},
          {"inUse", stream != nullptr && stream->readers() > 0}};
}

QJsonObject cameraStatus(const Camera& camera, const HostContext& context, const HostTable& hosts) {
  QJsonObject object = describeCamera(camera, context, hosts);
  object.remove("formats");
  const CameraStream* stream = context.streams.find(camera.number);
  const CameraStream::Counters counters =
      stream == nullptr ? CameraStream::Counters{} : stream->counters();
  object["running"] = stream != nullptr && stream->running();
  object["readers"] = stream == nullptr ? 0 : static_cast<int>(stream->readers());
  object["frames"] = number(counters.frames);
  object["bytes"] = number(counters.bytes);
  object["encodeMicroseconds"] = static_cast<qint64>(counters.encodeTime);
  if (const CapturePlan* plan = stream == nullptr ? nullptr : stream->plan()) {
    object["width"] = plan->width;
    object["height"] = plan->height;
    object["quality"] = plan->quality;
  }
  return object;
}

QJsonObject shareStatus(const Share& share) {
  const Share::Counters& counters = share.counters();
  return {{"camera", qt(share.camera().info.id)}, {"link", qt(share.link()->name())},
          {"started", share.started()},           {"frames", number(counters.frames)},
          {"bytes", number(counters.bytes)},      {"dropped", number(counters.dropped)},
          {"rateLimit", share.rateLimit()}};
}

QJsonObject hostStatus(const Host& host, const HostContext& context) {
  QJsonArray shares;
  for (const auto& [id, share] : host.shares()) shares.append(shareStatus(*share));
  const ipc::MessageStream::Counters counters = context.server.counters(host.client());
  return {{"client", number(host.client())},
          {"name", qt(host.name())},
          {"vmId", qt(host.vmId())},
          {"bytesIn", number(counters.bytesIn)},
          {"bytesOut", number(counters.bytesOut)},
          {"bytesQueued", number(counters.bytesQueued)},
          {"framesDropped", number(counters.framesDropped)},
          {"shares", shares}};
}

std::string text(const QJsonValue& value) {
  return value.isBool() ? (value.toBool() ? "yes" : "no") : textOrNumber(value);
}

std::string cameraLine(const QJsonObject& camera) {
  QStringList vms;
  const QJsonArray ids = camera.value("sharedWith").toArray();
  for (const auto& vm : ids) vms.append(vm.toString());
  const std::string state = !camera.value("present").toBool()  ? "unplugged"
                            : camera.value("running").toBool() ? "on"
                                                               : "off";
  std::string line = joined("  ", text(camera.value("number")), "  ", text(camera.value("id")),
                            "  ", text(camera.value("name")), "  ", state);
  if (camera.contains("width")) {
    line += joined("  ", text(camera.value("width")), "x", text(camera.value("height")));
  }
  return line + joined("  frames ", text(camera.value("frames")), "  bytes ",
                       text(camera.value("bytes")), "  encode ",
                       text(camera.value("encodeMicroseconds")), " us  shared with ",
                       vms.isEmpty() ? "nobody" : vms.join(", ").toStdString(), "\n");
}

std::string hostLines(const QJsonObject& host) {
  std::string lines = joined("  ", text(host.value("name")), "  VM ", text(host.value("vmId")),
                             "  sent ", text(host.value("bytesOut")), " bytes  queued ",
                             text(host.value("bytesQueued")), "\n");
  const QJsonArray shares = host.value("shares").toArray();
  for (const auto& value : shares) {
    const QJsonObject share = value.toObject();
    lines += joined("    ", text(share.value("camera")), "  through ", text(share.value("link")),
                    "  watched ", text(share.value("started")), "  frames ",
                    text(share.value("frames")), "  bytes ", text(share.value("bytes")),
                    "  dropped ", text(share.value("dropped")), "\n");
  }
  return lines;
}

// What does not work at the moment, and so is no camera for this host.
std::vector<DeviceChange> troubles(const Host& host, const HostContext& context,
                                   const std::map<std::string, std::string>& unreadable) {
  std::vector<DeviceChange> changes;
  for (const auto& [id, why] : unreadable) {
    CameraInfo info;
    info.id = id;
    if (host.refusal(info).empty()) changes.push_back(fileRefused(id, why));
  }
  for (const auto& [id, share] : host.shares()) {
    const CameraStream* stream = context.streams.find(share->camera().number);
    if (stream == nullptr || stream->trouble().empty()) continue;
    changes.push_back(cameraFailed(share->camera(), stream->trouble()));
  }
  return changes;
}

}  // namespace

QJsonObject cameraList(const Host& host, const HostContext& context, const HostTable& hosts,
                       const std::map<std::string, std::string>& unreadable) {
  QJsonArray cameras;
  for (const Camera* camera : context.catalogue.all()) {
    if (!host.refusal(camera->info).empty()) continue;
    // One that is unplugged is listed only to the host whose share waits for it.
    if (!camera->present && !host.waitsFor(camera->info.id)) continue;
    cameras.append(describeCamera(*camera, context, hosts));
  }
  QJsonArray refusals;
  for (const DeviceChange& change : host.refusals()) refusals.append(toJson(change));
  for (const DeviceChange& change : troubles(host, context, unreadable)) {
    refusals.append(toJson(change));
  }
  QJsonArray notes;
  for (const std::string& note : host.policyNotes()) notes.append(qt(note));
  return {{"cameras", cameras}, {"refusals", refusals}, {"policyNotes", notes}};
}

QJsonObject statusReport(const HostContext& context, const HostTable& hosts,
                         std::chrono::steady_clock::duration uptime) {
  QJsonArray cameras;
  for (const Camera* camera : context.catalogue.all()) {
    cameras.append(cameraStatus(*camera, context, hosts));
  }
  QJsonArray hostList;
  for (const auto& [id, host] : hosts) hostList.append(hostStatus(*host, context));
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(uptime).count();
  return {{"version", LUMSAR_VERSION},
          {"pid", static_cast<qint64>(::getpid())},
          {"socket", qt(context.server.path())},
          {"uptimeSeconds", static_cast<qint64>(seconds)},
          {"cameras", cameras},
          {"hosts", hostList}};
}

std::string statusText(const QJsonObject& status) {
  std::string lines =
      joined("lumsar-camera-service ", text(status.value("version")), ", process ",
             text(status.value("pid")), ", running for ", text(status.value("uptimeSeconds")),
             " s at ", text(status.value("socket")), "\ncameras:\n");
  const QJsonArray cameras = status.value("cameras").toArray();
  for (const QJsonValue& camera : cameras) lines += cameraLine(camera.toObject());
  if (cameras.isEmpty()) lines += "  none\n";
  lines += "hosts:\n";
  const QJsonArray hosts = status.value("hosts").toArray();
  for (const QJsonValue& host : hosts) lines += hostLines(host.toObject());
  if (hosts.isEmpty()) lines += "  none\n";
  return lines;
}

}  // namespace lumsar::service
