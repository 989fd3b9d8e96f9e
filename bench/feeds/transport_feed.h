// A host's transport by itself, and the rows that compare what it carries then with what it carries
// behind host and plug-in.
#pragma once

#include <asio/io_context.hpp>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "feeds/flow.h"
#include "harness/rows.h"
#include "harness/stopwatch.h"
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

// How many frames are under way in a real connection: as many as a host keeps without dropping any.
inline constexpr std::uint64_t kManyAhead = host::kSendLimits.frames;

// A row of a real connection.
using ConnectionMeasure = double (*)(Measured, std::uint64_t ahead);
struct Connection {
  std::string name;
  ConnectionMeasure floor;
  ConnectionMeasure here;

  Row row(const std::string& of, Measured what, std::uint64_t ahead,
          double limit = kNoLimit) const {
    return {name + of,
            what == Measured::Time ? "ms" : "ms CPU",
            [*this, what, ahead] { return floor(what, ahead); },
            [*this, what, ahead] { return here(what, ahead); },
            limit,
            5};
  }
};

// The time of a frame, which is to be at least 0.95 of the bare transport's rate, and the processor
// time.
inline std::vector<Row> rowsOf(const Connection& connection) {
  return {connection.row(": frame of 100 KB through a real connection", Measured::Time, kManyAhead,
                         1 / 0.95),
          connection.row(": the same, processor time of all", Measured::Processor, kManyAhead)};
}

}  // namespace lumsar::bench
