// lumsar-camera-service --status: asks the running service what it is doing.
#pragma once

#include <string>

namespace lumsar::service {

// By this name the service knows clients that only ask for its status.
inline constexpr const char* kStatusClient = "lumsar --status";

// The status of the service on `channel`, for people or as JSON. Throws Failure.
std::string askStatus(const std::string& channel, bool asJson);

}  // namespace lumsar::service
