// Called by Init and RdpInit on the host's thread.
#include "entry/host_start.h"

#include <QDebug>

#include "core/lumsar.h"
#include "ipc/ipc_settings.h"

void readSettings(HostStart& start) {
  ParseConfigJson(start.config.toStdString(), &start.ipcName, &start.libDir);
}

int startHost(Lumsar& self, const HostStart& start) {
  qInfo() << "Use ipc:" << start.ipcName << ", lib path:" << start.libDir;
  if (!self.Init(start.libDir, start.vmId)) {
    qCritical("%s lumsar initialize failed!", start.prefix);
    return lumsar::STATUS_INIT_FAILED;
  }
  self.m_vmId = start.vmId;
  self.m_ipcName = start.ipcName;
  self.SetConfigAndPolicy(start.config);

  const int status = self.Connect();
  if (status != lumsar::STATUS_OK) {
    // The line begins with "Init:" for both kinds of host.
    qCritical() << "Init: connect to Local camera rdr server failed! err:" << status;
  } else {
    qInfo() << start.connectedTo << start.ipcName << " SUCCESS!";
  }
  return status;
}
