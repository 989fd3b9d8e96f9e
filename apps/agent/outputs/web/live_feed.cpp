#include "outputs/web/live_feed.h"

#include <algorithm>
#include <list>

#include "base/text/format.h"

namespace lumsar::agent {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto kStatusInterval = 1s;
constexpr auto kCheckInterval = 500ms;  // how often to check a browser that gets nothing

struct Watched {
  Watched(const LiveCamera& camera, Bell& bell)
      : handle(camera.handle), reader(camera.stream, bell) {}

  int handle;
  ViewStream::Reader reader;
};

bool sendStatus(const std::string& json, HttpResponse& response) {
  return response.write(base::text("status {}\n", json.size())) && response.write(json) &&
         response.write("\n");
}

bool sendFrame(Watched& camera, HttpResponse& response) {
  const FramePtr frame = camera.reader.take();
  if (!frame || frame->format.encoding != kEncodingMjpg) return true;
  return response.write(base::text("frame {} {}\n", camera.handle, frame->data.size())) &&
         response.write(base::Bytes(frame->data)) && response.write("\n");
}

}  // namespace

void sendFeed(const std::vector<LiveCamera>& cameras, const std::function<std::string()>& status,
              HttpResponse& response) {
  Bell bell;
  std::list<Watched> watched;
  for (const LiveCamera& camera : cameras) watched.emplace_back(camera, bell);
  if (!response.beginStream("application/octet-stream")) return;
  auto statusDue = Clock::now();
  while (response.isConnected()) {
    if (Clock::now() >= statusDue) {
      if (!sendStatus(status(), response)) return;
      statusDue = Clock::now() + kStatusInterval;
    }
    for (Watched& camera : watched) {
      if (!sendFrame(camera, response)) return;
    }
    watched.remove_if([](const Watched& camera) { return camera.reader.stream().closed(); });
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(statusDue - Clock::now());
    bell.wait(std::clamp<std::chrono::milliseconds>(left, 0ms, kCheckInterval));
  }
}

}  // namespace lumsar::agent
