// Transport: the host's end of the channel to the VM, whatever carries it.
// Made by a host program for its kind of channel; everything here runs on the main loop but wake().
#ifndef LUMSAR_HOST_TRANSPORT_TRANSPORT_H
#define LUMSAR_HOST_TRANSPORT_TRANSPORT_H

#include <span>
#include <string>

namespace lumsar::host {

class Transport {
 public:
  // Told of the channel's life, on the main loop.
  class Listener {
   public:
    virtual void channelOpened() = 0;
    // Some bytes of the stream, cut anywhere; valid during the call.
    virtual void channelReceived(std::span<const unsigned char> bytes) = 0;
    virtual void channelClosed(const std::string& why) = 0;
    // The channel cannot be opened now; the transport goes on trying.
    virtual void channelTrouble(const std::string& why) = 0;
    // The channel cannot be opened and trying again would not help; the transport has given up.
    virtual void channelRefused(const std::string& why) = 0;

   protected:
    ~Listener() = default;
  };

  virtual ~Transport() = default;

  // Opens the channel, and again whenever it is lost, until stop().
  virtual void start(Listener& listener) = 0;
  virtual void stop() = 0;
  // Messages wait in the queue. Thread-safe, never waits.
  virtual void wake() = 0;
};

}  // namespace lumsar::host

#endif
