// Gives up whatever a decoder does not need: privileges, memory without a limit, and all system
// calls but a few that open and start nothing and reach no other process.
#pragma once

namespace lumsar::agent {

// Those that are open already and may be used on.
enum class Devices { None, Graphics };

// Only `socket` can be read from and written to afterwards, by any thread. Throws base::Failure.
void enterSandbox(int socket, Devices devices = Devices::None);

}  // namespace lumsar::agent
