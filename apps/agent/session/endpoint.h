// Endpoint: the guest's end of the protocol on one connection. Deframes messages, answers the
// handshake, and resynchronises after an error in the stream. No I/O.
//
//    opened() --> waiting for a HELLO --HELLO--> established --error--> waiting for a HELLO
//                         ^                         |  ^         (an error drops all cameras)
//                         +--------closed()---------+  +--HELLO-- (begins a new session)
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "lumsar/assembler.h"
#include "protocol/message.h"

namespace lumsar::agent {

using protocol::Bytes;

enum class Protocol {
  Spice,  // the host begins the handshake
  Rdp,    // the guest first says that its end of the channel is open
};

struct EndpointSettings {
  Protocol protocol = Protocol::Spice;
  std::uint8_t vmMajor = kProtocolMajor;
  std::uint8_t vmMinor = kProtocolMinor;
  std::uint16_t session = 1;
  bool shareAll = false;
  bool wrongToken = false;  // for tests of the host
  std::chrono::milliseconds helloTimeout{5000};
  std::chrono::milliseconds idleTimeout{0};  // without any camera; 0 for none
};

// What an Endpoint tells its owner. `send` has to accept all bytes or end the connection.
class EndpointEvents {
 public:
  virtual ~EndpointEvents() = default;
  virtual void send(Bytes message) = 0;
  // The handshake has been answered.
  virtual void established(const RedirMsgHeader& header, std::uint16_t token) = 0;
  virtual void takeRecord(Bytes record) = 0;
  virtual void unredirectAll() = 0;
  virtual void streamFault() = 0;
};

class Endpoint {
 public:
  // `name` is the peer's in the log.
  Endpoint(EndpointSettings settings, EndpointEvents& owner, std::string name);

  void opened();
  void closed();
  // Where to put the next bytes; tell received() how many they are.
  std::span<unsigned char> room() { return m_assembler.prepare(kReadSize); }
  void received(std::size_t size);
  // To be called when no bytes have come for a while. An incomplete message may hold up a HELLO
  // that follows it: a host that was restarted waits for its answer and sends nothing more. True
  // when such a message was dropped; another one may follow.
  bool dropStalled();
  // Asks for a HELLO where the protocol has a message for that. False where it has none.
  bool requestHello();
  // Sends a record without a meaning if the host begins the handshake and has not done so yet.
  void sendWakeUpProbe();

  bool established() const { return m_established; }
  std::uint64_t droppedBytes() const { return m_droppedInAll; }

 private:
  static constexpr std::size_t kReadSize = 128U << 10U;

  void dispatchComplete();
  bool findHello();
  void drop(std::size_t bytes);
  void logDropped();
  void dispatch(Bytes message);
  void answer(Bytes message);
  void fault(const char* what);

  EndpointSettings m_settings;
  EndpointEvents& m_owner;
  std::string m_name;
  MessageAssembler m_assembler;
  bool m_established = false;
  std::uint64_t m_dropped = 0;  // since the last session
  std::uint64_t m_droppedInAll = 0;
};

}  // namespace lumsar::agent
