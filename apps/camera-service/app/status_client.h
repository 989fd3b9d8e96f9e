// lumsar-camera-service --status: asks the running service what it is doing.
#pragma once

#include <string>

namespace lumsar::service {

// The status of the service on `channel`, for people or as JSON. Throws Failure.
std::string askStatus(const std::string& channel, bool asJson);

}  // namespace lumsar::service
