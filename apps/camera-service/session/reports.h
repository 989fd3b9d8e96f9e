// What the service reports of itself: the camera list for a host and the status for --status.
#pragma once

#include <QJsonObject>
#include <chrono>
#include <map>
#include <memory>

#include "session/client_session.h"

namespace lumsar::service {

using SessionTable = std::map<ipc::ClientId, std::unique_ptr<ClientSession>>;

// The cameras that the session's host may share, who uses them, its latest refusals and what does
// not work: `unreadable` are the files that cannot be cameras.
QJsonObject cameraList(const ClientSession& session, const SessionContext& context,
                       const SessionTable& sessions,
                       const std::map<std::string, std::string>& unreadable);

QJsonObject statusReport(const SessionContext& context, const SessionTable& sessions,
                         std::chrono::steady_clock::duration uptime);

}  // namespace lumsar::service
