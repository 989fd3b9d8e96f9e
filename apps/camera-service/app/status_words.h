// What the service's status says, in words for people.
#pragma once

#include <QJsonObject>
#include <string>

namespace lumsar::service {

// A member of any kind, cleaned for a terminal; empty when there is none.
std::string field(const QJsonObject& object, const char* key);

// Whether a camera is there and on.
const char* stateOf(const QJsonObject& camera);

}  // namespace lumsar::service
