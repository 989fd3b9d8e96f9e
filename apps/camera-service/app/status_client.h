// lumsar-camera-service --status: asks the running service what it does. Main thread.
#ifndef LUMSAR_CAMERA_SERVICE_APP_STATUS_CLIENT_H
#define LUMSAR_CAMERA_SERVICE_APP_STATUS_CLIENT_H

#include <string>

namespace lumsar::service {

// By this name the service knows those who only ask for its status.
inline constexpr const char* kStatusClient = "lumsar --status";

// The status of the service on `channel`, for people or as JSON. Throws std::runtime_error with a
// text for the user.
std::string askStatus(const std::string& channel, bool json);

}  // namespace lumsar::service

#endif
