// RdpClient: one connection to an RDP server that carries nothing but our channel; the picture is
// asked for as small as can be and thrown away. Made, run and destroyed on the transport's thread;
// wake(), end() and connectingSince() may be called on any other.
#ifndef LUMSAR_HOST_RDP_CLIENT_H
#define LUMSAR_HOST_RDP_CLIENT_H

#include <freerdp/freerdp.h>
#include <winpr/synch.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>

#include "rdp_channel.h"

namespace lumsar::host {

struct RdpTarget {
  std::string host;  // name, IP address, or the absolute path of a Unix socket
  std::uint16_t port = 3389;
  std::string serverName;  // the name in the server's certificate, if it is not `host`
  std::string user;        // may be empty: then there is no network level authentication
  std::string domain;
  std::string password;
  std::string acceptedFingerprint;  // SHA-256 of a certificate to trust, "ab:cd:..."
  bool ignoreCertificate = false;   // for tests
  std::string stateDirectory;       // for the RDP library, writable
  bool verbose = false;
};

class RdpClient {
 public:
  struct Outcome {
    bool wasConnected = false;
    bool permanent = false;  // trying again would fail again
    bool atLogOn = false;    // perhaps refused: many servers say no more than goodbye
    std::string why;
  };

  RdpClient(const RdpTarget& target, RdpChannel& channel);
  ~RdpClient();
  RdpClient(const RdpClient&) = delete;
  RdpClient& operator=(const RdpClient&) = delete;

  // Connects and stays connected until the server or end() ends it. Throws nothing.
  Outcome run() noexcept;

  // There may be something to send.
  void wake() { SetEvent(m_wake.get()); }

  // Whether the attempt to connect has lasted longer than `time`.
  bool connectingSince(std::chrono::milliseconds time) const;
  void end();

 private:
  struct Context;
  struct Closer {
    void operator()(HANDLE handle) const { CloseHandle(handle); }
  };

  void configure();
  void stayConnected();
  Outcome outcome() const;
  std::string lastError() const;

  static RdpClient& of(freerdp* instance);
  static BOOL preConnect(freerdp* instance);
  static BOOL postConnect(freerdp* instance);
  static void postDisconnect(freerdp* instance);
  static DWORD verifyCertificate(freerdp* instance, const char* host, UINT16 port,
                                 const char* commonName, const char* subject, const char* issuer,
                                 const char* fingerprint, DWORD flags);

  const RdpTarget& m_target;
  RdpChannel& m_channel;
  const std::unique_ptr<void, Closer> m_wake;
  freerdp* m_instance = nullptr;
  const std::chrono::steady_clock::time_point m_begun = std::chrono::steady_clock::now();
  std::atomic<bool> m_connecting{true};
  bool m_wasConnected = false;
  std::string m_refusedCertificate;  // why, if it was
};

}  // namespace lumsar::host

#endif
