// Gives up whatever a decoder does not need: privileges, memory without a limit, and all calls of
// the system but a few that open, send and start nothing.
#pragma once

namespace lumsar::agent {

// Throws base::Failure. Descriptors that are open stay so.
void enterSandbox();

}  // namespace lumsar::agent
