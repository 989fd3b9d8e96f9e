#include "app/summary.h"

#include <QJsonArray>

#include "base/text/format.h"
#include "base/text/table.h"
#include "json/json.h"

namespace lumsar::host {

namespace {

double number(std::uint64_t value) {
  return static_cast<double>(value);
}

}  // namespace

std::string describeStatus(const CameraHost& host) {
  using base::text;
  const Session::State state = host.state();
  const SendQueue::Counters counters = host.counters();
  return base::table(
      {{"camera service", state.initialised ? "connected" : "not connected",
        text("lost {} times", state.recoveries)},
       {"channel to the VM", state.channelOpen ? "open" : "closed",
        text("handshakes {}", state.handshakes)},
       {"from the VM", text("{} bytes", state.bytesFromVm),
        text("{} bytes dropped", state.strayBytes)},
       {"from the cameras", text("{} frames", counters.frames),
        text("{} bytes", counters.frameBytes),
        text("latency {} us, at most {} us", counters.medianLatency, counters.worstLatency)},
       {"to the VM", text("{} frames", counters.framesSent), text("{} bytes", counters.bytesSent),
        text("{} frames dropped", counters.framesDropped)},
       {"device changes", std::to_string(state.deviceChanges)}});
}

QJsonObject statusOf(const CameraHost& host, Protocol protocol) {
  const Session::State state = host.state();
  const SendQueue::Counters counters = host.counters();
  return {
      {QStringLiteral("kind"),
       protocol == Protocol::Rdp ? QStringLiteral("rdp") : QStringLiteral("spice")},
      {QStringLiteral("serviceConnected"), state.initialised},
      {QStringLiteral("channelOpen"), state.channelOpen},
      {QStringLiteral("handshakes"), number(state.handshakes)},
      {QStringLiteral("recoveries"), number(state.recoveries)},
      {QStringLiteral("deviceChanges"), number(state.deviceChanges)},
      {QStringLiteral("bytesFromVm"), number(state.bytesFromVm)},
      {QStringLiteral("strayBytes"), number(state.strayBytes)},
      {QStringLiteral("fromPlugin"),
       QJsonObject{{QStringLiteral("frames"), number(counters.frames)},
                   {QStringLiteral("bytes"), number(counters.frameBytes)},
                   {QStringLiteral("latencyMedianUs"), number(counters.medianLatency)},
                   {QStringLiteral("latencyWorstUs"), number(counters.worstLatency)}}},
      {QStringLiteral("toVm"),
       QJsonObject{{QStringLiteral("frames"), number(counters.framesSent)},
                   {QStringLiteral("bytes"), number(counters.bytesSent)},
                   {QStringLiteral("dropped"), number(counters.framesDropped)},
                   {QStringLiteral("refused"), number(counters.messagesRefused)}}},
  };
}

QJsonObject summaryOf(const CameraHost& host, Protocol protocol) {
  QJsonArray commands;
  for (const auto& result : host.commands().results()) {
    commands.append(QJsonObject{{QStringLiteral("command"), json::qt(result.command)},
                                {QStringLiteral("status"), result.status},
                                {QStringLiteral("answer"), json::qt(result.answer)}});
  }
  QJsonObject summary = statusOf(host, protocol);
  summary[QStringLiteral("commands")] = commands;
  return summary;
}

}  // namespace lumsar::host
