// Transport: how bytes of one other side at a time get here and back. One subclass a way.
// Owned by a Peer, which polls it. Bound to the channel's thread; no call blocks.
//
//   while nobody is there: attach() when descriptor() is readable, and after each short pause
//   while somebody is:     read() and write() by what poll says; -1 means that they left
#ifndef LUMSAR_AGENT_TRANSPORT_AGENT_TRANSPORT_H
#define LUMSAR_AGENT_TRANSPORT_AGENT_TRANSPORT_H

#include <sys/types.h>

#include <span>
#include <string>

namespace lumsar::agent {

class Transport {
 public:
  virtual ~Transport() = default;

  // What to poll; -1 while there is nothing to poll, then a pause must do.
  virtual int descriptor() const = 0;
  virtual bool attached() const = 0;
  // Looks for the other side. True when it is newly there.
  virtual bool attach() = 0;
  // How many bytes came or went, 0 for none at the moment, -1 when the other side has left.
  virtual ssize_t read(std::span<unsigned char> to) = 0;
  virtual ssize_t write(std::span<const unsigned char> from) = 0;
  // Sends the other side away, so that it may begin anew.
  virtual void detach() = 0;
  // False when nobody can come (again).
  virtual bool reusable() const { return true; }
  // True where anybody may come, and where one who says nothing keeps out the others.
  virtual bool mustGreet() const { return false; }
  // For the log.
  virtual std::string name() const = 0;
};

}  // namespace lumsar::agent

#endif
