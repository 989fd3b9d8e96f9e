// XrdpTransport: the channel "lumsar" of the RDP session in which this program runs, through the
// library that xrdp has for programs inside its sessions. It is loaded when asked for, so that
// nothing here depends on xrdp.
#pragma once

#include <chrono>

#include "transport/agent_transport.h"

namespace lumsar::agent {

// The library's functions that are used; results are 0 for failure.
struct XrdpApi {
  void* (*open)(void* server, unsigned session, const char* name) = nullptr;
  int (*close)(void* channel) = nullptr;
  int (*read)(void* channel, unsigned timeout, char* to, unsigned size, unsigned* got) = nullptr;
  int (*write)(void* channel, const char* from, unsigned size, unsigned* sent) = nullptr;
  int (*query)(void* channel, int what, void** answer, unsigned* size) = nullptr;
  void (*free)(void* answer) = nullptr;
};

// Loads the library at `path`, or where it usually is when that is empty. Throws base::Failure.
XrdpApi loadXrdpApi(const std::string& path);

class XrdpTransport : public Transport {
 public:
  explicit XrdpTransport(const XrdpApi& api) : m_api(api) {}
  ~XrdpTransport() override { detach(); }

  int descriptor() const override { return m_descriptor; }
  bool attached() const override { return m_channel != nullptr; }
  bool attach() override;
  std::chrono::steady_clock::time_point nextAttempt() const override { return m_nextAttempt; }
  ssize_t read(std::span<unsigned char> to) override;
  ssize_t write(std::span<const unsigned char> from) override;
  void detach() override;
  std::string name() const override { return "host"; }

 private:
  bool open();
  bool probeChannel();
  ssize_t send(std::span<const unsigned char> bytes);

  XrdpApi m_api;
  void* m_channel = nullptr;
  int m_descriptor = -1;
  std::chrono::steady_clock::time_point m_nextAttempt{};
  bool m_loggedFailure = false;
  bool m_channelOpenedSent = false;
};

}  // namespace lumsar::agent
