// The host program, except for its kind of channel.
#pragma once

#include <asio/io_context.hpp>
#include <functional>
#include <memory>

#include "app/host_options.h"
#include "transport/inbox.h"
#include "transport/send_queue.h"
#include "transport/transport.h"

namespace lumsar::host {

using MakeTransport = std::function<std::unique_ptr<Transport>(
    asio::io_context& loop, SendQueue& queue, Inbox& inbox, const Options& options)>;

// The body of main(): runs the host until it is done or interrupted, and returns the exit status.
int runHostProgram(int argc, char** argv, const HostCommandLine& commandLine,
                   const MakeTransport& makeTransport);

}  // namespace lumsar::host
