// The status text. Called by Program.
// Bound to the channel's thread.
#include "app/status.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdio>

#include "base/fd.h"
#include "outputs/web/json.h"
#include "version.h"

namespace lumsar::agent {
namespace {

void addPeer(JsonWriter& json, const PeerStatus& peer) {
  json.beginObject()
      .text("name", peer.name)
      .boolean("connected", peer.attached)
      .boolean("greeted", peer.greeted)
      .number("hellos", peer.hellos)
      .number("token", peer.token)
      .text("version", std::to_string(peer.clientMajor) + "." + std::to_string(peer.clientMinor))
      .number("capabilities", peer.capabilities)
      .number("faults", peer.faults)
      .number("droppedBytes", peer.droppedBytes)
      .endObject();
}

void addCamera(JsonWriter& json, const CameraStatus& camera) {
  json.beginObject()
      .number("handle", camera.handle)
      .number("camera", camera.info.number)
      .text("id", camera.info.id)
      .text("name", camera.info.name)
      .number("vendorId", camera.info.format.vendorId)
      .number("productId", camera.info.format.productId)
      .boolean("present", camera.present)
      .boolean("started", camera.started)
      .number("width", camera.width)
      .number("height", camera.height)
      .text("encoding", encodingName(camera.encoding))
      .number("frames", camera.counters.frames)
      .number("bytes", camera.counters.bytes)
      .number("lost", camera.counters.lost)
      .number("dropped", camera.dropped)
      .number("badPictures", camera.counters.bad)
      .number("shown", camera.sinks.taken)
      .real("rate", camera.rate / 1000.0, 2)
      .number("latencyMedian", camera.latencyMedian)
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
      .text("version", kVersion)
      .text("kind", status.kind)
      .real("seconds", status.seconds, 1)
      .text("direct", status.direct)
      .number("viewPort", status.viewPort);
  json.beginArray("peers");
  for (const auto& peer : status.peers) addPeer(json, peer);
  json.endArray().beginArray("cameras");
  for (const auto& camera : status.cameras) addCamera(json, camera);
  json.endArray().endObject();
  return json.result();
}

bool replaceFile(const std::string& path, const std::string& content) {
  const std::string part = path + ".part";
  const base::UniqueFd file(open(part.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  if (!file) return false;
  const ssize_t written = write(file.get(), content.data(), content.size());
  if (written >= 0 && written < static_cast<ssize_t>(content.size())) {
    errno = ENOSPC;
  } else if (written >= 0 && rename(part.c_str(), path.c_str()) == 0) {
    return true;
  }
  const int error = errno;
  unlink(part.c_str());
  errno = error;
  return false;
}

}  // namespace lumsar::agent
