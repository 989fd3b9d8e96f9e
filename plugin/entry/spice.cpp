// The SPICE host's entry points: Init, Event, Ctrl, DeInit. Called on the host's threads.
#include <QCoreApplication>
#include <QDebug>

#include "channel/hello.h"
#include "core/exports.h"
#include "core/guard.h"
#include "core/lumsar.h"
#include "core/relaxed.h"
#include "entry/host_start.h"

namespace {

QString configText(const Lumsar& self, const std::string& config) {
  if (!config.empty()) return QString::fromUtf8(config.c_str());
  qInfo() << "["
          << "Init"
          << "] config is NULL! Use default config!";
  return self.m_defaultConfig;
}

int initObject(const lumsar::SpiceSendFunc& sendFunc,
               const lumsar::SpicePostEventFunc& postEventFunc, HostStart& start,
               const std::string& config) {
  Lumsar* self = Lumsar::GetInstance();
  if (self == nullptr) {
    qCritical("[%s][%d] Get Lumsar obj failed!", "Init", __LINE__);
    return lumsar::STATUS_NO_OBJECT;
  }
  if (loadRelaxed(self->m_initialized)) {
    qCritical("Init: lumsar already initialized!");
    return lumsar::STATUS_ALREADY_INITIALIZED;
  }
  start.config = configText(*self, config);
  qInfo("[%s][%d] config json[%s]", "Init", __LINE__, start.config.toUtf8().constData());
  if (!sendFunc || !postEventFunc) {
    qCritical("Init: send func or event func is NULL!");
    return lumsar::STATUS_INVALID_PARAMETER;
  }
  self->m_spiceSendFunc = sendFunc;
  self->m_spicePostEventFunc = postEventFunc;
  if (!start.config.isEmpty()) readSettings(start);
  return startHost(*self, start);
}

int init(const lumsar::SpiceSendFunc& sendFunc, const lumsar::SpicePostEventFunc& postEventFunc,
         const std::string& vmId, const std::string& config) {
  HostStart start{.prefix = "Init:", .connectedTo = "Connect to "};
  start.libDir = QCoreApplication::applicationDirPath();
  qInfo("[%s][%d] Enter!", "Init", __LINE__);
  if (vmId.empty()) {
    qCritical("[%s][%d] >>>>VM id is NULL!!!<<<<\n", "Init", __LINE__);
    return lumsar::STATUS_INVALID_PARAMETER;
  }
  qInfo("[%s][%d] vm id[%s]", "Init", __LINE__, vmId.c_str());
  start.vmId = QString::fromStdString(vmId);
  const int status = initObject(sendFunc, postEventFunc, start, config);
  qInfo("Init: Leave!");
  return status;
}

void channelOpened(Lumsar& self) {
  qInfo("Event: Spice channel is Opened!");
  const unsigned short token = self.GenerateToken();
  lumsar::HelloMessage hello = makeHello(lumsar::CAP_BASE_1 | lumsar::CAP_BASE_2, token);
  if (self.m_spiceSendFunc) self.m_spiceSendFunc(bytesOf(hello), sizeof hello);
  qInfo() << "Event: Send hello to remote VM! Token:" << token << ", Version["
          << int{lumsar::kProtocolMajor} << "." << int{lumsar::kProtocolMinor} << "]";
  // Open even when nothing could be sent; the RDP host's HELLO differs here, which is intentional.
  storeRelaxed(self.m_channelOpened, true);
}

void channelClosed(Lumsar& self) {
  qInfo("Event: Spice channel is Closed! Unredirect all cameras!");
  storeRelaxed(self.m_channelOpened, false);
  self.UnredirectAll();
}

void channelEvent(int event) {
  Lumsar& self = *Lumsar::GetInstance();
  switch (event) {
    case lumsar::CHANNEL_EVENT_OPENED:
      channelOpened(self);
      break;
    case lumsar::CHANNEL_EVENT_CLOSED:
      channelClosed(self);
      break;
    default:
      qWarning() << "Unsupported channel event:" << event;
  }
}

int control(const std::string& command, char* output, int& outputLength) {
  qDebug("Ctrl: Enter!");
  Lumsar& self = *Lumsar::GetInstance();
  const QString text = QString::fromUtf8(command.c_str());
  const int status = self.HandleCommand(text, output, outputLength);
  if (status != lumsar::STATUS_OK) qWarning() << "Handle command[" << text << "] Failed!!!";
  qDebug("Ctrl: Leave!");
  return status;
}

void deInit() {
  qInfo("DeInit: Enter!");
  Lumsar* self = Lumsar::GetInstance();
  if (self == nullptr) {
    qCritical("DeInit: Get Lumsar obj failed!");
    return;
  }
  if (!loadRelaxed(self->m_initialized)) {
    qCritical("DeInit: lumsar NOT initialized!");
    return;
  }
  self->Disconnect();
  self->Uninit();
  qInfo("DeInit: Leave!");
}

}  // namespace

int Init(const lumsar::SpiceSendFunc& sendFunc, const lumsar::SpicePostEventFunc& postEventFunc,
         const std::string& vmId, const std::string& config) {
  return guarded("Init", [&] { return init(sendFunc, postEventFunc, vmId, config); });
}

void Event(int event) {
  guarded("Event", [=] {
    channelEvent(event);
    return lumsar::STATUS_OK;
  });
}

int Ctrl(const std::string& command, char* output, int& outputLength) {
  return guarded("Ctrl", [&] { return control(command, output, outputLength); });
}

void DeInit() {
  guarded("DeInit", [] {
    deInit();
    return lumsar::STATUS_OK;
  });
}
