// Events to the host, each from a short-lived thread of its own so that the raiser never waits for
// the host. Threads are detached and may outlive the de-initialisation.
#pragma once

#include <memory>

#include "lumsar/plugin.h"

// Starts the thread; it owns `data` from then on. Throws std::system_error when it cannot start.
void RaiseEvent(lumsar::RedirEvent event, std::unique_ptr<char[]> data, int length);

// Body of the thread: calls the host's event function, if the kind of host has one, and frees
// `data` (made by array new, or null).
void PostEventToSpice(lumsar::RedirEvent event, char* data, int length);
