// Loads the IPC library at run time and binds its eight functions.
// Called by Lumsar::Init and Lumsar::Uninit with m_mutex held.
#include <dlfcn.h>

#include <QDebug>

#include "core/lumsar.h"

namespace {

// Stores what it finds at once, also a null.
template <class Function>
bool bind(void* library, const char* symbol, Function*& function) {
  function = reinterpret_cast<Function*>(dlsym(library, symbol));
  if (function != nullptr) return true;
  const QByteArray failed = QByteArray("Load function for ") + symbol + " failed! err:";
  qWarning() << failed.constData() << dlerror();
  return false;
}

}  // namespace

bool Lumsar::LoadControllerLibrary(QString libDir) {
  libDir += QLatin1String("/libvdi_ipc.so");
  qInfo() << "lib path:" << libDir;
  const QByteArray path = libDir.toUtf8();
  m_libraryHandle = dlopen(path.constData(), RTLD_LAZY);
  if (m_libraryHandle == nullptr) {
    qWarning("LoadControllerLibrary: >>>>load lib[%s] failed!<<<<\n", path.constData());
    return false;
  }

  // In this order, up to the first that is missing. The others are not cleared: without a client
  // nothing calls through them.
  const bool complete =
      bind(m_libraryHandle, "VDI_CreateIpcClient", m_createIpcClient) &&
      bind(m_libraryHandle, "VDI_DestroyIpcClient", m_destroyIpcClient) &&
      bind(m_libraryHandle, "VDI_ConnectIpcClient", m_connectIpcClient) &&
      bind(m_libraryHandle, "VDI_AsyncConnectIpcClient", m_asyncConnectIpcClient) &&
      bind(m_libraryHandle, "VDI_DisconnectIpcClient", m_disconnectIpcClient) &&
      bind(m_libraryHandle, "VDI_IsIpcClientConnected", m_isIpcClientConnected) &&
      bind(m_libraryHandle, "VDI_IpcClientSendData", m_ipcClientSendData) &&
      bind(m_libraryHandle, "VDI_IpcClientSyncCall", m_ipcClientSyncCall);
  if (!complete) UnloadControllerLibrary();
  return complete;
}

void Lumsar::UnloadControllerLibrary() {
  if (m_libraryHandle == nullptr) return;
  dlclose(m_libraryHandle);
  m_libraryHandle = nullptr;
}
