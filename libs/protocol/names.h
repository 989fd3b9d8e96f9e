// The names under which the parties find each other.
#pragma once

namespace lumsar::protocol {

inline constexpr char kRdpChannelName[] = "lumsar";  // at most 7 bytes
inline constexpr char kSpicePortName[] = "org.lumsar.camera.0";
inline constexpr char kDefaultIpcChannel[] = "lumsar";

}  // namespace lumsar::protocol
