// What the service says of itself: the camera list for a host and the status for --status.
// Called on the io_context's thread; reentrant.
#ifndef LUMSAR_CAMERA_SERVICE_SESSION_REPORTS_H
#define LUMSAR_CAMERA_SERVICE_SESSION_REPORTS_H

#include <QJsonObject>
#include <chrono>
#include <map>
#include <memory>

#include "session/client_session.h"

namespace lumsar::service {

using HostTable = std::map<ipc::ClientId, std::unique_ptr<Host>>;

// The cameras that `host` may share, who uses them, what was refused to it of late, and what does
// not work: `unreadable` are the files that are no cameras.
QJsonObject cameraList(const Host& host, const HostContext& context, const HostTable& hosts,
                       const std::map<std::string, std::string>& unreadable);

QJsonObject statusReport(const HostContext& context, const HostTable& hosts,
                         std::chrono::steady_clock::duration uptime);

// The status for people.
std::string statusText(const QJsonObject& status);

}  // namespace lumsar::service

#endif
