// The connection to the camera service. Its state is the IPC library's alone: every question about
// it is put to the library at the moment it matters.
// Connect, AsyncConnect, Disconnect: the host's threads. OnConnect, OnSend, OnClose: the library's.
#include <QDebug>
#include <QMutexLocker>
#include <chrono>
#include <thread>

#include "core/guard.h"
#include "core/lumsar.h"
#include "core/relaxed.h"

int Lumsar::Connect() {
  if (m_ipcClient == nullptr) {
    qWarning("Connect: client is NULL!");
    return lumsar::STATUS_NOT_INITIALIZED;
  }
  if (m_isIpcClientConnected(m_ipcClient)) {
    qWarning("Connect: Aready connected with IPC server!");  // the misspelling is intentional
    return lumsar::STATUS_ALREADY_CONNECTED;
  }
  qInfo() << "Connect: Try to connect ipc:" << m_ipcName;
  return m_connectIpcClient(m_ipcClient, m_ipcName.toUtf8().constData());
}

int Lumsar::AsyncConnect(QString ipcName) {
  if (m_ipcClient == nullptr) {
    qWarning("AsyncConnect: client is NULL!");
    return lumsar::STATUS_NOT_INITIALIZED;
  }
  return m_asyncConnectIpcClient(m_ipcClient, ipcName.toUtf8().constData());
}

int Lumsar::Disconnect() {
  const QMutexLocker lock(&m_mutex);
  if (m_ipcClient == nullptr) {
    qWarning("Disconnect: client is NULL!");
    return lumsar::STATUS_NOT_INITIALIZED;
  }
  if (!m_isIpcClientConnected(m_ipcClient)) {
    qWarning("Connect: Client is NOT connected with IPC server!");  // "Connect:" is intentional
    return lumsar::STATUS_DISCONNECTED;
  }
  return m_disconnectIpcClient(m_ipcClient);
}

bool Lumsar::IsIpcConnected() {
  if (m_ipcClient == nullptr) {
    qWarning("IsIpcConnected: client is NULL!");
    return false;
  }
  return m_isIpcClientConnected(m_ipcClient);
}

void Lumsar::KeepIpcConnection(Lumsar* self) {
  guarded("KeepIpcConnection", [self] {
    qInfo("KeepIpcConnection: Enter!");
    while (loadRelaxed(self->m_keepAliveRunning)) {
      std::this_thread::sleep_for(std::chrono::seconds(3));
      if (self->IsIpcConnected()) continue;
      qWarning("KeepIpcConnection: IPC is disconnected with server! Reconnecting...");
      self->Connect();
    }
    qInfo("KeepIpcConnection: Leave!");
    return lumsar::STATUS_OK;
  });
}

int Lumsar::OnConnect(int connectId, void* /*userData*/) {
  return guarded("OnConnect", [connectId] {
    qInfo() << "client id[" << connectId << "] connect success!";
    return lumsar::STATUS_OK;
  });
}

// The library requires the callback; a finished send changes nothing here.
int Lumsar::OnSend(int /*connectId*/, void* /*userData*/) {
  return lumsar::STATUS_OK;
}

int Lumsar::OnClose(int connectId, int error, void* userData) {
  return guarded("OnClose", [=] {
    auto& self = *static_cast<Lumsar*>(userData);
    // The misspelling is intentional.
    qWarning() << "Ipc connection disconnet!! connect id:" << connectId << ", error:" << error;
    self.UnredirectAllVCams();
    // Straight from this thread, and whatever the kind of host: an RDP host has no such callable.
    if (self.m_spicePostEventFunc) {
      self.m_spicePostEventFunc(lumsar::REDIR_EVENT_IPC_CLOSED, nullptr, 0);
    }
    return lumsar::STATUS_OK;
  });
}
