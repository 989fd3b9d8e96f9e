#include "app/status.h"

#include "app/json.h"
#include "base/text/format.h"
#include "base/text/table.h"
#include "base/version.h"

namespace lumsar::agent {
namespace {

void addConnection(JsonWriter& json, const ConnectionStatus& connection) {
  json.beginObject()
      .text("name", connection.name)
      .boolean("connected", connection.attached)
      .boolean("greeted", connection.established)
      .number("hellos", connection.hellos)
      .number("token", connection.token)
      .text("version", base::text("{}.{}", connection.clientMajor, connection.clientMinor))
      .number("capabilities", connection.capabilities)
      .number("faults", connection.faults)
      .number("droppedBytes", connection.droppedBytes)
      .endObject();
}

void addCamera(JsonWriter& json, const CameraStatus& camera) {
  json.beginObject()
      .number("handle", camera.handle)
      .number("camera", camera.info.camera)
      .text("id", camera.info.id)
      .text("name", camera.info.name)
      .number("vendorId", camera.info.format.vendorId)
      .number("productId", camera.info.format.productId)
      .boolean("present", camera.present)
      .boolean("started", camera.started)
      .number("width", camera.width)
      .number("height", camera.height)
      .text("encoding", protocol::encodingName(camera.encoding))
      .number("frames", camera.counters.frames)
      .number("bytes", camera.counters.bytes)
      .number("lost", camera.counters.lost)
      .number("dropped", camera.dropped)
      .number("badPictures", camera.counters.bad)
      .number("shown", camera.sinks.delivered)
      .real("rate", camera.rate / 1000.0, 2)
      .number("latencyMedian", camera.latencyMedian)
      .number("latency99", camera.latency99)
      .number("latencyWorst", camera.latencyWorst)
      .number("savedFiles", camera.sinks.files)
      .text("savedPath", camera.sinks.path)
      .text("device", camera.sinks.device)
      .text("error", camera.sinks.error)
      .endObject();
}

}  // namespace

std::string toJson(const Status& status) {
  JsonWriter json;
  json.beginObject()
      .text("program", "lumsar-agent")
      .text("version", base::kVersion)
      .text("kind", status.protocol == Protocol::Rdp ? "rdp" : "spice")
      .real("seconds", status.seconds, 1)
      .text("direct", status.direct)
      .number("viewPort", status.viewPort);
  json.beginArray("peers");
  for (const auto& connection : status.connections) addConnection(json, connection);
  json.endArray().beginArray("cameras");
  for (const auto& camera : status.cameras) addCamera(json, camera);
  json.endArray().endObject();
  return json.result();
}

std::string toTable(const Status& status) {
  if (status.cameras.empty()) return "no camera was shared\n";
  std::vector<base::TableRow> rows{
      {"CAMERA", "ID", "SIZE", "FRAMES", "SHOWN", "DROPPED", "LOST", "DAMAGED", "LATENCY"}};
  for (const CameraStatus& camera : status.cameras) {
    const Counters& counters = camera.counters;
    rows.push_back({camera.info.name, camera.info.id,
                    base::text("{}x{}", camera.width, camera.height),
                    std::to_string(counters.frames), std::to_string(camera.sinks.delivered),
                    std::to_string(camera.dropped), std::to_string(counters.lost),
                    std::to_string(counters.bad), base::text("{} us", camera.latencyMedian)});
  }
  return "cameras:\n" + base::table(rows);
}

}  // namespace lumsar::agent
