// Handing calls over to the thread that runs GLib's default context.
#pragma once

#include <functional>

namespace lumsar::host {

// Always through the loop: an "invoke" would run it right here while the loop has not begun.
// Thread-safe, never blocks. What `call` throws is logged.
void onGlib(std::function<void()> call);

}  // namespace lumsar::host
