#include "app/status_client.h"

#include <QJsonArray>
#include <QStringList>
#include <vector>

#include "app/service_call.h"
#include "app/status_words.h"
#include "base/text/format.h"
#include "base/text/table.h"
#include "json/json.h"
#include "lumsar/ipc_transport.h"

namespace lumsar::service {
namespace {

using base::text;

std::string sharedWith(const QJsonObject& camera) {
  QStringList vms;
  const QJsonArray ids = camera.value("sharedWith").toArray();
  for (const auto& vm : ids) vms.append(vm.toString());
  return json::shown(vms.join(", ").toStdString());
}

std::string cameraTable(const QJsonArray& cameras) {
  if (cameras.isEmpty()) return "no cameras\n";
  std::vector<base::TableRow> rows{{"#", "ID", "NAME", "STATE", "SIZE", "FRAMES", "BYTES",
                                    "DAMAGED", "ENCODING", "SHARED WITH", "FRAMES ARE"}};
  for (const auto& value : cameras) {
    const QJsonObject camera = value.toObject();
    const std::string size = camera.contains("width")
                                 ? text("{}x{}", field(camera, "width"), field(camera, "height"))
                                 : "";
    rows.push_back({field(camera, "number"), field(camera, "id"), field(camera, "name"),
                    stateOf(camera), size, field(camera, "frames"), field(camera, "bytes"),
                    field(camera, "damagedFrames"), field(camera, "encodeMicroseconds") + " us",
                    sharedWith(camera), field(camera, "treatment")});
  }
  return "cameras:\n" + base::table(rows);
}

std::string hostTable(const QJsonArray& hosts) {
  if (hosts.isEmpty()) return "no host is connected\n";
  std::vector<base::TableRow> rows{{"NAME", "VM", "BYTES SENT", "BYTES QUEUED"}};
  for (const auto& value : hosts) {
    const QJsonObject host = value.toObject();
    rows.push_back({field(host, "name"), field(host, "vmId"), field(host, "bytesOut"),
                    field(host, "bytesQueued")});
  }
  return "hosts:\n" + base::table(rows);
}

std::string shareTable(const QJsonArray& hosts) {
  std::vector<base::TableRow> rows{
      {"VM", "CAMERA", "THROUGH", "STATE", "FRAMES", "BYTES", "DROPPED", "LINE"}};
  for (const auto& value : hosts) {
    const QJsonObject host = value.toObject();
    const QJsonArray shares = host.value("shares").toArray();
    for (const auto& item : shares) {
      const QJsonObject share = item.toObject();
      rows.push_back({field(host, "vmId"), field(share, "camera"), field(share, "link"),
                      share.value("started").toBool() ? "started" : "not started",
                      field(share, "frames"), field(share, "bytes"), field(share, "dropped"),
                      field(share, "line")});
    }
    const QJsonArray waiting = host.value("waiting").toArray();
    for (const auto& item : waiting) {
      const QJsonObject share = item.toObject();
      rows.push_back({field(host, "vmId"), field(share, "camera"), field(share, "link"),
                      "waits until it is plugged in"});
    }
  }
  return rows.size() == 1 ? "no camera is shared\n" : "shares:\n" + base::table(rows);
}

std::string statusText(const QJsonObject& status) {
  const QJsonArray hosts = status.value("hosts").toArray();
  return text("lumsar-camera-service {}, process {}, running for {} s at {}\n",
              field(status, "version"), field(status, "pid"), field(status, "uptimeSeconds"),
              field(status, "socket")) +
         cameraTable(status.value("cameras").toArray()) + hostTable(hosts) + shareTable(hosts);
}

}  // namespace

std::string askStatus(const std::string& channel, bool asJson) {
  const std::string status = callService(channel, IPC_MSG_STATUS);
  return asJson ? status + "\n" : statusText(json::readObject(status).object);
}

}  // namespace lumsar::service
