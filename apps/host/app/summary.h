// What a host did, for people and programs that ask for it.
#pragma once

#include <QJsonObject>

#include "session/camera_host.h"

namespace lumsar::host {

// What is connected and what went through.
QJsonObject statusOf(const CameraHost& host, Protocol protocol);
// The same and what became of each command.
QJsonObject summaryOf(const CameraHost& host, Protocol protocol);

}  // namespace lumsar::host
