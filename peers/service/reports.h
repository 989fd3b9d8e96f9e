// What the service says of itself: the camera list for a host and the status for --status.
// Called on the io_context's thread; reentrant.
#ifndef LUMSAR_PEERS_SERVICE_REPORTS_H
#define LUMSAR_PEERS_SERVICE_REPORTS_H

#include <QJsonObject>
#include <chrono>
#include <map>
#include <memory>

#include "service/host.h"

namespace lumsar::service {

using HostTable = std::map<ipc::ClientId, std::unique_ptr<Host>>;

// The cameras that `host` may share, who uses them, and what was refused to it of late.
QJsonObject cameraList(const Host& host, const HostContext& context, const HostTable& hosts);

QJsonObject statusReport(const HostContext& context, const HostTable& hosts,
                         std::chrono::steady_clock::duration uptime);

// The status for people.
std::string statusText(const QJsonObject& status);

}  // namespace lumsar::service

#endif
