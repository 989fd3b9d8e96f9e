// The RDP host's entry points but Handler and ShareAll: RdpInit, RdpEvent, RdpDeInit. Called on the
// host's threads.
#include <QDebug>

#include "core/exports.h"
#include "core/guard.h"
#include "core/lumsar.h"
#include "core/relaxed.h"
#include "entry/host_start.h"

namespace {

constexpr const char* kFunction = "RdpInit";

int initObject(HostStart& start, lumsar::RdpSendFunc sendData) {
  Lumsar* self = Lumsar::GetInstance();
  if (self == nullptr) {
    qCritical("[%s][%d] Get Lumsar obj failed!", kFunction, 1548);
    return lumsar::STATUS_NO_OBJECT;
  }
  if (loadRelaxed(self->m_initialized)) {
    qCritical("[RdpInit] lumsar already initialized!");
    return lumsar::STATUS_ALREADY_INITIALIZED;
  }
  start.config = self->m_defaultConfig;
  qInfo("[%s] ====== config json[%s]", kFunction, start.config.toUtf8().constData());
  storeRelaxed(self->m_dataChannel, DATA_CHANNEL_RDP);
  storeRelaxed(self->m_rdpPostEventFunc, nullptr);
  self->m_rdpSendFunc = sendData;
  if (!start.config.isEmpty()) {
    qInfo("[%s] call ParseConfigJson...", kFunction);
    readSettings(start);
  }
  // Always here, relative to the host's working directory, whatever the configuration says.
  start.libDir = QStringLiteral("./Device Redirect");
  return startHost(*self, start);
}

int init(const char* vmId, lumsar::RdpSendFunc sendData) {
  HostStart start{.prefix = "[RdpInit]", .connectedTo = "[RdpInit] Connect to "};
  qInfo("[%s] Enter!", kFunction);
  if (vmId == nullptr) {
    qCritical("[%s][%d] >>>>VM id is NULL!!!<<<<\n", kFunction, 1540);
    return lumsar::STATUS_INVALID_PARAMETER;
  }
  qInfo("[%s] vm id[%s]", kFunction, vmId);
  start.vmId = QString::fromUtf8(vmId);
  const int status = initObject(start, sendData);
  qInfo("[RdpInit] Leave!");
  return status;
}

void channelEvent(int event) {
  qInfo() << "RdpEvent: Enter! event:" << event;
  Lumsar& self = *Lumsar::GetInstance();
  switch (event) {
    case lumsar::CHANNEL_EVENT_OPENED:
      // Nothing is sent: the HELLO waits until the VM reports its own end open.
      qInfo("RdpEvent: Rdp vchannel is Opened!");
      break;
    case lumsar::CHANNEL_EVENT_CLOSED:
      qInfo("RdpEvent: Rdp vchannel is Closed! Unredirect all cameras!");
      storeRelaxed(self.m_channelOpened, false);
      self.UnredirectAll();
      break;
    default:
      qWarning() << "RdpEvent: Unsupported channel event:" << event;
  }
  qInfo("RdpEvent: Leave!");
}

}  // namespace

int RdpInit(const char* vmId, lumsar::RdpSendFunc sendData) {
  return guarded(kFunction, [=] { return init(vmId, sendData); });
}

void RdpEvent(int event) {
  guarded("RdpEvent", [=] {
    channelEvent(event);
    return lumsar::STATUS_OK;
  });
}

void RdpDeInit() {
  guarded("RdpDeInit", [] {
    qInfo("RdpDeInit: Enter!");
    DeInit();
    qInfo("RdpDeInit: Leave!");
    return lumsar::STATUS_OK;
  });
}
