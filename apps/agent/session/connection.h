// Connection: one peer, a host or a camera service that has connected without one: its transport,
// its end of the protocol, its cameras. Bound to the channel thread.
#pragma once

#include <poll.h>

#include <memory>
#include <optional>

#include "session/camera_table.h"
#include "session/endpoint.h"
#include "transport/agent_transport.h"

namespace lumsar::agent {

struct ConnectionStatus {
  std::string name;
  bool attached = false;
  bool established = false;
  std::uint64_t hellos = 0;
  std::uint16_t token = 0;
  int clientMajor = 0;
  int clientMinor = 0;
  std::uint32_t capabilities = 0;
  std::uint64_t faults = 0;
  std::uint64_t droppedBytes = 0;
};

class Connection : private EndpointEvents {
 public:
  Connection(std::unique_ptr<Transport> transport, const EndpointSettings& settings,
             Gallery& gallery);
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection() override;

  // What to wait for, and what has come of it.
  pollfd pollRequest() const;
  void handle(short events);
  // To be called after whatever has happened, and when it is due: attaches, starts and stops
  // cameras, sends statistics.
  void update(Clock::time_point now);
  Clock::time_point due() const;
  // Stops all cameras, tells the service, and waits a moment for that to be sent.
  void finish();

  bool over() const { return !m_transport->attached() && !m_transport->reusable(); }
  ConnectionStatus status() const;
  std::string peerHost() const { return m_transport->peerHost(); }
  void appendStatus(std::vector<CameraStatus>& to) const { m_cameras.appendStatus(to); }

 private:
  enum class Hello {
    NotExpected,
    Expected,    // from a peer that has just connected
    Requested,   // asked for again
    AfterFault,  // expected again, after an error in the stream
  };

  void send(Bytes message) override;
  void established(const RedirMsgHeader& header, std::uint16_t token) override;
  void takeRecord(Bytes record) override { m_cameras.takeRecord(record); }
  void unredirectAll() override;
  void streamFault() override;

  void tryAttach();
  void attached();
  void readSome();
  void flush();
  void disconnect(const std::string& why);
  void expectHello(Hello hello);
  void checkHello(Clock::time_point now);
  void checkIdle(Clock::time_point now);
  std::optional<Clock::time_point> idleDeadline() const;
  void checkStalled(Clock::time_point now);
  void wakeUpHost(Clock::time_point now);

  const std::chrono::milliseconds m_helloTimeout;
  const std::chrono::milliseconds m_idleTimeout;
  std::unique_ptr<Transport> m_transport;
  Endpoint m_endpoint;
  CameraTable m_cameras;
  std::vector<unsigned char> m_unsent;
  std::optional<Clock::time_point> m_stallTime;  // if nothing comes until then
  Hello m_hello = Hello::NotExpected;
  Clock::time_point m_helloDeadline;
  Clock::time_point m_establishedAt;
  std::optional<Clock::time_point> m_wakeUpProbeTime;
  ConnectionStatus m_status;
};

}  // namespace lumsar::agent
