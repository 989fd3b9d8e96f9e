// HostTransport: to a VM through its host's connection to the service.
#pragma once

#include "ipc/server/server.h"
#include "transports/vm_transport.h"

namespace lumsar::service {

class HostTransport : public VmTransport {
 public:
  HostTransport(ipc::IpcServer& server, ipc::ClientId client)
      : m_server(server), m_client(client) {}

  bool ready() const override { return true; }
  std::uint32_t dataType() const override { return IPC_MSG_DATA; }
  void send(ipc::Outgoing outgoing) override { m_server.send(m_client, std::move(outgoing)); }
  std::string name() const override { return "host"; }

 private:
  ipc::IpcServer& m_server;
  const ipc::ClientId m_client;
};

}  // namespace lumsar::service
