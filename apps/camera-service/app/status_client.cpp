#include "app/status_client.h"

#include <QJsonArray>
#include <QStringList>
#include <cstring>
#include <vector>

#include "base/errors.h"
#include "base/text/bytes.h"
#include "base/text/format.h"
#include "base/text/utf8.h"
#include "ipc/client/client.h"
#include "json/json.h"
#include "lumsar/ipc_transport.h"

namespace lumsar::service {
namespace {

using base::text;

constexpr std::size_t kLongestField = 4096;  // a file's id may hold its whole path

void check(int error, const std::string& channel) {
  if (error == 0) return;
  const char* meaning = ipcErrorText(error);
  throw base::Failure(text("cannot get the status of channel \"{}\": {} ({})", channel,
                           meaning != nullptr ? meaning : "unknown error", error));
}

std::string receiveStatus(const std::string& channel) {
  IpcClientParams params;
  std::strncpy(params.clientName, kStatusClient, kClientNameSize - 1);
  ipc::IpcClient client(&params);
  check(client.connect(channel.c_str()), channel);
  RedirMsgHeader request;
  request.type = IPC_MSG_STATUS;
  std::vector<unsigned char> reply(64U << 10U);
  for (int error = kIpcReplyTooLarge; error == kIpcReplyTooLarge;) {
    auto size = static_cast<unsigned int>(reply.size());
    error = client.call(base::bytesOf(request), reply.data(), &size);
    reply.resize(size);
    if (error != kIpcReplyTooLarge) check(error, channel);
  }
  return {reply.begin() + kHeaderSize, reply.end()};
}

std::string field(const QJsonObject& object, const char* key) {
  const QJsonValue value = object.value(QLatin1String(key));
  if (value.isBool()) return value.toBool() ? "yes" : "no";
  return base::clean(json::textOrNumber(value), kLongestField);
}

std::string cameraLine(const QJsonObject& camera) {
  QStringList vms;
  const QJsonArray ids = camera.value("sharedWith").toArray();
  for (const auto& vm : ids) vms.append(vm.toString());
  const std::string state = !camera.value("present").toBool()  ? "unplugged"
                            : camera.value("running").toBool() ? "on"
                                                               : "off";
  const std::string size = camera.contains("width")
                               ? text("  {}x{}  {}", field(camera, "width"),
                                      field(camera, "height"), field(camera, "treatment"))
                               : "";
  return text(
      "  {}  {}  {}  {}{}  frames {}  bytes {}  damaged {}  encoding {} us  shared with {}\n",
      field(camera, "number"), field(camera, "id"), field(camera, "name"), state, size,
      field(camera, "frames"), field(camera, "bytes"), field(camera, "damagedFrames"),
      field(camera, "encodeMicroseconds"),
      vms.isEmpty() ? "no VM" : base::clean(vms.join(", ").toStdString(), kLongestField));
}

std::string hostLines(const QJsonObject& host) {
  std::string lines =
      text("  {}  VM {}  sent {} bytes  queued {}\n", field(host, "name"), field(host, "vmId"),
           field(host, "bytesOut"), field(host, "bytesQueued"));
  const QJsonArray shares = host.value("shares").toArray();
  for (const auto& value : shares) {
    const QJsonObject share = value.toObject();
    lines += text("    {}  through {}  started {}  frames {}  bytes {}  dropped {}\n",
                  field(share, "camera"), field(share, "link"), field(share, "started"),
                  field(share, "frames"), field(share, "bytes"), field(share, "dropped"));
  }
  const QJsonArray waiting = host.value("waiting").toArray();
  for (const auto& value : waiting) {
    const QJsonObject share = value.toObject();
    lines += text("    {}  through {}  waiting until it is plugged in\n", field(share, "camera"),
                  field(share, "link"));
  }
  return lines;
}

std::string linesOf(const QJsonArray& items, std::string (*line)(const QJsonObject&)) {
  std::string lines;
  for (const auto& item : items) lines += line(item.toObject());
  return items.isEmpty() ? "  none\n" : lines;
}

std::string statusText(const QJsonObject& status) {
  return text("lumsar-camera-service {}, process {}, running for {} s at {}\n",
              field(status, "version"), field(status, "pid"), field(status, "uptimeSeconds"),
              field(status, "socket")) +
         "cameras:\n" + linesOf(status.value("cameras").toArray(), cameraLine) + "hosts:\n" +
         linesOf(status.value("hosts").toArray(), hostLines);
}

}  // namespace

std::string askStatus(const std::string& channel, bool asJson) {
  const std::string status = receiveStatus(channel);
  return asJson ? status + "\n" : statusText(json::readObject(status).object);
}

}  // namespace lumsar::service
