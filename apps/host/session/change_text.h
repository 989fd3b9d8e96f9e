// What a person reads of the camera service's device changes.
#pragma once

#include <QJsonObject>
#include <string>

namespace lumsar::host {

struct ChangeLine {
  std::string kind;  // how the line begins, alike for all changes of one kind
  std::string details;
};

// A device change, or an entry of the list's `refusals`.
ChangeLine describeChange(const QJsonObject& change);
// What is not of a known kind is shown as it came.
ChangeLine describeChange(const std::string& data);

// Whether it tells what somebody else has shared or unshared on this host's behalf.
bool isControl(const std::string& data);

}  // namespace lumsar::host
