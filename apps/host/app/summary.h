// The summary of what a host did, for people and programs.
#pragma once

#include <QJsonObject>

#include "session/camera_host.h"

namespace lumsar::host {

// What is connected and what was delivered, as a table for people.
std::string describeStatus(const CameraHost& host);
// The same for programs.
QJsonObject statusOf(const CameraHost& host, Protocol protocol);
// The same, and the result of each command.
QJsonObject summaryOf(const CameraHost& host, Protocol protocol);

}  // namespace lumsar::host
