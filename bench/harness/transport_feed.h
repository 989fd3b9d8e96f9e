// A host's transport by itself: what it carries when nothing stands in front of it.
#pragma once

#include <asio/io_context.hpp>
#include <functional>
#include <memory>

#include "harness/flow.h"
#include "transport/inbox.h"
#include "transport/send_queue.h"
#include "transport/transport.h"

namespace lumsar::bench {

struct Feed {
  std::size_t frame = 0;     // its size
  std::size_t fragment = 0;  // in which it is sent, as the plug-in would
  std::uint64_t ahead = 0;   // how many frames may be under way
};

using MakeTransport = std::function<std::unique_ptr<host::Transport>(
    asio::io_context&, host::SendQueue&, host::Inbox&)>;

// Feeds the transport as fast as `flow` says that frames are received. What a guest says of that in
// its statistics is written to `flow`.
[[noreturn]] void feedTransport(const MakeTransport& make, Feed feed, Flow& flow);

}  // namespace lumsar::bench
