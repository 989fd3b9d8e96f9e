// The object's creation and its two lifecycle operations.
// Called by the entry points on the host's threads.
#include "core/lumsar.h"

#include <QDebug>
#include <QMutexLocker>
#include <cstring>
#include <new>

#include "core/relaxed.h"

Lumsar* Lumsar::m_instance = nullptr;

Lumsar* Lumsar::GetInstance() {
  if (m_instance != nullptr) return m_instance;
  m_instance = new (std::nothrow) Lumsar;
  if (m_instance == nullptr) {
    qCritical("m_instance::GetInstance: alloc memory failed!\n");
  }
  return m_instance;
}

Lumsar::Lumsar() {
  // Hosts' logs have this line. Builds that set SOURCE_DATE_EPOCH are reproducible all the same.
  qInfo() << "Compile time: " << __DATE__ << ", " << __TIME__;
  m_defaultConfig = QStringLiteral(
      R"({"frame_interval": "0","rdr_channel": "tcp","max_width": "4000","quality": "50",)"
      R"("encode_type": "MJPG","codec": "AUTO","encode_FRC": "ON","encode_30FPS": "OFF",)"
      R"("ipc_name": "lumsar","relative_path": ""})");
}

Lumsar::~Lumsar() = default;

bool Lumsar::Init(QString libDir, QString clientName) {
  const QMutexLocker lock(&m_mutex);
  qInfo("Lumsar::Init: Enter!");
  if (loadRelaxed(m_initialized)) {
    qWarning("Already initialized!");
    return false;
  }
  if (!LoadControllerLibrary(libDir)) {
    qCritical() << "LoadControllerLibrary for lib:" << libDir << "failed!";
    return false;
  }

  m_ipcClientParams.onConnect = OnConnect;
  m_ipcClientParams.onSend = OnSend;
  m_ipcClientParams.onReceive = OnReceive;
  m_ipcClientParams.onClose = OnClose;
  m_ipcClientParams.userData = this;
  if (clientName.isEmpty()) clientName = QStringLiteral("0");
  // The last byte is left alone: a long name is cut, not terminated.
  std::strncpy(m_ipcClientParams.clientName, clientName.toUtf8().constData(),
               lumsar::kClientNameSize - 1);

  m_ipcClient = m_createIpcClient(&m_ipcClientParams);
  if (m_ipcClient == nullptr) {
    // The library stays loaded; the next Init binds it again over this handle.
    qCritical("Create ipc client failed!");
    return false;
  }
  storeRelaxed(m_initialized, true);
  qInfo("Lumsar::Init: Leave!");
  return true;
}

void Lumsar::Uninit() {
  const QMutexLocker lock(&m_mutex);
  qInfo("Lumsar::Uninit: Enter!");
  if (!loadRelaxed(m_initialized)) {
    qWarning("Not initialized!");
    return;
  }
  if (m_ipcClient != nullptr) {
    m_destroyIpcClient(m_ipcClient);
    m_ipcClient = nullptr;
    qInfo("client destroyed!");
    UnloadControllerLibrary();
  }
  storeRelaxed(m_initialized, false);
  qInfo("Lumsar::Uninit: Leave!");
}
