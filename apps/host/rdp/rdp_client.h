// RdpClient: one connection to an RDP server that carries nothing but our channel; the desktop is
// requested as small as possible and discarded. Made, run and destroyed on the transport's thread;
// wake(), endIfSilent(), answerDeadline() and end() may be called on any other.
#pragma once

#include <freerdp/error.h>
#include <freerdp/event.h>
#include <freerdp/freerdp.h>
#include <winpr/synch.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "rdp/rdp_channel.h"

namespace lumsar::host {

struct RdpTarget {
  std::string host;  // name, IP address, or the absolute path of a Unix socket
  std::uint16_t port = 3389;
  std::string serverName;  // the name in the server's certificate, if it is not `host`
  std::string user;        // empty: no network-level authentication
  std::string domain;
  std::string password;
  std::string acceptedFingerprint;  // SHA-256 of a certificate to trust, "ab:cd:..."
  bool ignoreCertificate = false;   // for tests
  std::string stateDirectory;       // for the RDP library, writable
  bool verbose = false;
  // The library has a timeout for TCP's answer only, not for the server's.
  std::chrono::seconds answerLimit{20};
};

class RdpClient {
 public:
  struct Outcome {
    bool wasConnected = false;
    bool lasted = false;     // connected for so long that it may be tried again soon
    bool permanent = false;  // trying again would fail again
    bool atLogOn = false;    // perhaps refused: many servers just hang up
    std::string why;
  };

  // `onWaiting` is called on the transport's thread when a connection begins to wait for a server
  // to which it was redirected.
  RdpClient(const RdpTarget& target, RdpChannel& channel, std::function<void()> onWaiting);
  ~RdpClient();
  RdpClient(const RdpClient&) = delete;
  RdpClient& operator=(const RdpClient&) = delete;

  // Connects and stays connected until the server or end() ends it. Throws nothing.
  Outcome run() noexcept;

  // There may be something to send.
  void wake() { SetEvent(m_wake.get()); }

  // Ends an attempt to connect that lasts longer than the target's timeout, also one to which the
  // server has redirected a connection.
  void endIfSilent();
  // When that may be; nothing while connected.
  std::optional<std::chrono::steady_clock::time_point> answerDeadline() const;
  void end();

 private:
  using Clock = std::chrono::steady_clock;
  struct Context;
  struct Closer {
    void operator()(HANDLE handle) const { CloseHandle(handle); }
  };

  void configure();
  void watchState();
  void attemptFailed();
  void stayConnected();
  Outcome outcome() const;
  std::string lastError() const;
  bool perhapsRefused() const;
  std::string server() const;

  static RdpClient& of(freerdp* instance);
  static void stateChanged(void* context, ConnectionStateChangeEventArgs* change);
  static BOOL preConnect(freerdp* instance);
  static BOOL postConnect(freerdp* instance);
  static void postDisconnect(freerdp* instance);
  static DWORD verifyCertificate(freerdp* instance, const char* host, UINT16 port,
                                 const char* commonName, const char* subject, const char* issuer,
                                 const char* fingerprint, DWORD flags);

  const RdpTarget& m_target;
  RdpChannel& m_channel;
  const std::function<void()> m_onWaiting;
  const std::unique_ptr<void, Closer> m_wake;
  freerdp* m_instance = nullptr;
  std::atomic<bool> m_active{false};                            // connected
  std::atomic<Clock::time_point> m_waitingSince{Clock::now()};  // when it is not
  std::atomic<bool> m_wasSilent{false};
  bool m_wasConnected = false;
  Clock::duration m_connectedFor{};
  UINT32 m_failure = FREERDP_ERROR_SUCCESS;  // of the attempt, once the library has begun another
  std::string m_refusedCertificate;          // why, if it was
};

}  // namespace lumsar::host
