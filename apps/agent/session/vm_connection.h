// Link: the VM's end of the protocol on one connection: the handshake, whole messages from pieces,
// finding the way back after garbage. Owned by a Peer; no I/O. Bound to the channel's thread.
//
//    opened() --> seeking --HELLO--> established --fault--> seeking
//                    ^                    |  ^                 (a fault drops all cameras)
//                    +------closed()------+  +--HELLO-- (a new HELLO starts afresh)
#ifndef LUMSAR_AGENT_SESSION_VM_CONNECTION_H
#define LUMSAR_AGENT_SESSION_VM_CONNECTION_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>

#include "lumsar/assembler.h"
#include "outputs/record.h"

namespace lumsar::agent {

enum class LinkKind {
  Spice,  // the host greets unasked
  Rdp,    // the VM says first that its end is open
};

struct LinkSettings {
  LinkKind kind = LinkKind::Spice;
  std::uint8_t vmMajor = kProtocolMajor;
  std::uint8_t vmMinor = kProtocolMinor;
  std::uint16_t session = 1;
  bool shareAll = false;
  bool wrongToken = false;  // for tests of the other side
  std::chrono::milliseconds helloPatience{5000};
};

// What a Link tells its owner. `send` must take all bytes or end the connection.
class LinkOwner {
 public:
  virtual ~LinkOwner() = default;
  virtual void send(Bytes message) = 0;
  virtual void greeted(const RedirMsgHeader& header, std::uint16_t token) = 0;
  virtual void takeRecord(Bytes record) = 0;
  virtual void unredirectAll() = 0;
  virtual void streamFault() = 0;
};

class Link {
 public:
  // `name` is how the log calls the other side.
  Link(LinkSettings settings, LinkOwner& owner, std::string name);

  void opened();
  void closed();
  // Room for the next bytes; tell received() how many came.
  std::span<unsigned char> room() { return m_assembler.prepare(kReadSize); }
  void received(std::size_t size);
  // Call it when no bytes have come for a while. A message cut short may hold up a HELLO that
  // stands behind it: the host that began anew waits for its answer and sends nothing more.
  void stalled();
  // Asks for a HELLO again, where the kind of channel has a way to. False where it has none.
  bool askForHello();
  // Sends what means nothing, where the host greets unasked and has not done so yet.
  void knock();

  bool established() const { return m_established; }
  std::uint64_t droppedBytes() const { return m_droppedInAll; }

 private:
  static constexpr std::size_t kReadSize = 128U << 10U;

  bool seekHello();
  void drop(std::size_t bytes);
  void sayDropped();
  void dispatch(Bytes message);
  void answer(const RedirMsgHeader& header, Bytes payload);
  void fault();

  LinkSettings m_settings;
  LinkOwner& m_owner;
  std::string m_name;
  MessageAssembler m_assembler;
  bool m_established = false;
  std::uint64_t m_dropped = 0;  // since the way was lost
  std::uint64_t m_droppedInAll = 0;
};

}  // namespace lumsar::agent

#endif
