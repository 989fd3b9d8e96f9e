// Peer: one other side, a host or a camera service that came by itself: its transport, its link,
// its cameras. Owned by Program, which polls it. Bound to the channel's thread.
#ifndef LUMSAR_AGENT_SESSION_PEER_H
#define LUMSAR_AGENT_SESSION_PEER_H

#include <poll.h>

#include <memory>
#include <optional>

#include "session/camera_table.h"
#include "session/vm_connection.h"
#include "transport/agent_transport.h"

namespace lumsar::agent {

struct PeerStatus {
  std::string name;
  bool attached = false;
  bool greeted = false;
  std::uint64_t hellos = 0;
  std::uint16_t token = 0;
  int clientMajor = 0;
  int clientMinor = 0;
  std::uint32_t capabilities = 0;
  std::uint64_t faults = 0;
  std::uint64_t droppedBytes = 0;
};

class Peer : private LinkOwner {
 public:
  Peer(std::unique_ptr<Transport> transport, const LinkSettings& settings, Gallery& gallery);
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;
  ~Peer() override;

  // What to wait for.
  pollfd wanted() const;
  // What became of it.
  void handle(short events);
  // Called every now and then: attaching, starting and stopping cameras, statistics.
  void update(Clock::time_point now);
  // Lets all cameras go, with the service told, and waits a moment for that to leave.
  void finish();

  bool over() const { return !m_transport->attached() && !m_transport->reusable(); }
  PeerStatus status() const;
  void appendStatus(std::vector<CameraStatus>& to) const { m_cameras.appendStatus(to); }

 private:
  void send(Bytes message) override;
  void greeted(const RedirMsgHeader& header, std::uint16_t token) override;
  void takeRecord(Bytes record) override { m_cameras.takeRecord(record); }
  void unredirectAll() override;
  void streamFault() override;

  void tryAttach();
  void readSome();
  void flush();
  void lose(const std::string& why);
  void knock(Clock::time_point now);
  void remindOfHello(Clock::time_point now);

  const std::chrono::milliseconds m_helloPatience;
  std::unique_ptr<Transport> m_transport;
  Link m_link;
  CameraTable m_cameras;
  std::vector<unsigned char> m_out;
  Clock::time_point m_lastRead;
  std::optional<Clock::time_point> m_awaitingHelloSince;
  std::optional<Clock::time_point> m_knockAt;
  bool m_asked = false;   // for a HELLO, once more than at the beginning
  bool m_broken = false;  // since the other side came, its stream was at fault
  PeerStatus m_status;
};

}  // namespace lumsar::agent

#endif
