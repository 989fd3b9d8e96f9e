// Gives up whatever a decoder does not need: privileges, memory without a limit, and all system
// calls but a few that open and start nothing and reach no other process.
#pragma once

namespace lumsar::agent {

// Only `socket` can be read from and written to afterwards. Throws base::Failure.
void enterSandbox(int socket);

}  // namespace lumsar::agent
