// A question to the running camera service, from its tools.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace lumsar::service {

// By this name the service knows clients that are not hosts.
inline constexpr const char* kToolClient = "lumsar --status";

// The answer of the service on `channel` to a message of an IpcOwnType. Throws Failure.
std::string callService(const std::string& channel, std::uint32_t type,
                        std::string_view payload = {});

}  // namespace lumsar::service
