// The host program: everything but its kind of channel. Called from main().
#ifndef LUMSAR_HOST_APP_HOST_APP_H
#define LUMSAR_HOST_APP_HOST_APP_H

#include <asio/io_context.hpp>
#include <functional>
#include <memory>

#include "app/host_options.h"
#include "transport/send_queue.h"
#include "transport/transport.h"

namespace lumsar::host {

using MakeTransport = std::function<std::unique_ptr<Transport>(
    asio::io_context& loop, SendQueue& queue, const Options& options)>;

// Parses the command line, runs the host until it is done or interrupted, and returns the exit
// code. No exception leaves it.
int runHostProgram(int argc, char** argv, const ProgramText& text,
                   const MakeTransport& makeTransport);

}  // namespace lumsar::host

#endif
