// Transport: carries the bytes of one peer at a time, both ways. No call blocks.
//
//   without a peer: attach() when descriptor() is readable, and at nextAttempt()
//   with a peer:    read() and write() as poll says; -1 means that it has disconnected
#pragma once

#include <sys/types.h>

#include <chrono>
#include <span>
#include <string>

namespace lumsar::agent {

class Transport {
 public:
  virtual ~Transport() = default;

  // What to poll; -1 while there is nothing to poll.
  virtual int descriptor() const = 0;
  virtual bool attached() const = 0;
  // Accepts a peer. True when a new one is there.
  virtual bool attach() = 0;
  // For what descriptor() does not tell of.
  virtual std::chrono::steady_clock::time_point nextAttempt() const {
    return std::chrono::steady_clock::time_point::max();
  }
  // How many bytes were transferred, 0 for none at the moment, -1 when the peer has disconnected.
  virtual ssize_t read(std::span<unsigned char> to) = 0;
  virtual ssize_t write(std::span<const unsigned char> from) = 0;
  // Disconnects the peer, which may then connect again.
  virtual void detach() = 0;
  // False when there will be no other peer.
  virtual bool reusable() const { return true; }
  // True where anybody can connect, and where a silent peer keeps out the others.
  virtual bool requiresHello() const { return false; }
  // The numeric host of a TCP peer.
  virtual std::string peerHost() const { return {}; }
  // For the log.
  virtual std::string name() const = 0;
};

}  // namespace lumsar::agent
