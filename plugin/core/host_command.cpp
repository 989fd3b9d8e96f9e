// The host's JSON commands: checked, completed with what only the plug-in knows, and relayed to the
// camera service. Called by Ctrl (HandleCommand) and ShareAll (RedirectAll) on the host's threads.
#include <QCoreApplication>
#include <QDebug>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMutexLocker>
#include <algorithm>
#include <initializer_list>

#include "core/documents.h"
#include "core/lumsar.h"
#include "core/relaxed.h"
#include "lumsar/message.h"

namespace {

struct Command {
  QJsonObject object;   // as the host wrote it
  QByteArray received;  // its bytes, for the commands that are relayed unchanged
};

// Between the two messages of a TCP share: time for the service to connect the VM.
constexpr int kConnectVmMs = 200;

void processEventsFor(int milliseconds) {
  QElapsedTimer timer;
  timer.start();
  while (timer.elapsed() < milliseconds) QCoreApplication::processEvents();
}

bool hasAll(const QJsonObject& object, std::initializer_list<const char*> keys) {
  return std::all_of(keys.begin(), keys.end(),
                     [&](const char* key) { return object.contains(QLatin1String(key)); });
}

int transfer(Lumsar& self, QByteArray& data, lumsar::IpcMsgType type) {
  const int status = self.TransferCmd2CameraService(data, static_cast<int>(type));
  if (status != lumsar::STATUS_OK) {
    qWarning() << "TransferCmd2CameraService failed! error:" << status;
  }
  return status;
}

QByteArray withVmId(const Lumsar& self, QJsonObject object) {
  object[QStringLiteral("vmId")] = self.m_vmId;
  return QJsonDocument(object).toJson();
}

// The end of a command that was relayed, or understood and refused. One that failed on its way, was
// not JSON or came without a connection ends with its warning.
int leave(int status) {
  qDebug("HandleCommand: Leave!");
  return status;
}

int missingDeviceId() {
  qWarning("Cannot find deviceId in jsonCmd!");
  return leave(lumsar::STATUS_MISSING_ITEM);
}

int share(Lumsar& self, Command& command) {
  if (!hasAll(command.object, {"deviceId"})) return missingDeviceId();
  QByteArray text = withVmId(self, command.object);
  qInfo() << "Lumsar::HandleCommand: ShareCmd:" << QString::fromUtf8(text);
  return transfer(self, text, lumsar::IPC_MSG_SHARE);
}

int shareTcp(Lumsar& self, Command& command) {
  if (!hasAll(command.object, {"deviceId", "remoteIp", "remotePort"})) {
    qWarning("Cannot find some item in jsonCmd!");
    return leave(lumsar::STATUS_MISSING_ITEM);
  }
  qInfo("Send connect VM command to service!");
  const int status = transfer(self, command.received, lumsar::IPC_MSG_CONNECT_VM);
  if (status != lumsar::STATUS_OK) return status;
  processEventsFor(kConnectVmMs);
  QByteArray text = withVmId(self, command.object);
  qInfo() << "Lumsar::HandleCommand: ShareTcpCmd:" << QString::fromUtf8(text);
  qInfo("Send RDR command to service!");
  return transfer(self, text, lumsar::IPC_MSG_SHARE);
}

int unshare(Lumsar& self, Command& command) {
  if (!hasAll(command.object, {"deviceId"})) return missingDeviceId();
  return transfer(self, command.received, lumsar::IPC_MSG_UNSHARE);
}

int setPolicy(Lumsar& self, QJsonObject object) {
  object[QStringLiteral("version")] =
      versionText(loadRelaxed(self.m_vmVersionMajor), loadRelaxed(self.m_vmVersionMinor));
  object[QStringLiteral("vm_id")] = self.m_vmId;
  QByteArray text = QJsonDocument(object).toJson(QJsonDocument::Compact);
  qInfo() << "[Lumsar::HandleCommand] setpolicy:\n" << QString::fromUtf8(text);
  text.append('\0');  // a policy travels with its terminator
  return transfer(self, text, lumsar::IPC_MSG_POLICY);
}

int list(Lumsar& self, char* output, int& outputSize) {
  const int status = self.HandleGetCameraListCmd(output, outputSize);
  if (status != lumsar::STATUS_OK) qWarning() << "HandleGetCameraListCmd failed! error:" << status;
  return status;
}

int dispatch(Lumsar& self, const QString& name, Command& command, char* output, int& outputSize) {
  if (name == QLatin1String("list")) return list(self, output, outputSize);
  if (name == QLatin1String("share")) return share(self, command);
  if (name == QLatin1String("sharetcp")) return shareTcp(self, command);
  if (name == QLatin1String("unshare")) return unshare(self, command);
  if (name == QLatin1String("unshareall")) {
    return transfer(self, command.received, lumsar::IPC_MSG_UNSHARE_ALL);
  }
  if (name == QLatin1String("setpolicy")) return setPolicy(self, command.object);
  qWarning() << "["
             << "HandleCommand"
             << "][" << 697 << "]Unsupported command:" << name << "!!!\n";
  return leave(lumsar::STATUS_UNKNOWN_COMMAND);
}

}  // namespace

int Lumsar::HandleCommand(QString cmd, char* output, int& outputSize) {
  Command command;
  command.received = cmd.toUtf8();
  qInfo() << "["
          << "HandleCommand"
          << "] Enter!";
  qInfo() << "["
          << "HandleCommand"
          << "] cmd:" << cmd << ",output_size:" << outputSize;
  const QMutexLocker lock(&m_mutex);
  if (!IsIpcConnected()) {
    qWarning("NOT connected with local camera server!");
    return lumsar::STATUS_NOT_CONNECTED;
  }

  QJsonParseError error;
  const QJsonDocument document = QJsonDocument::fromJson(command.received, &error);
  if (!isJson(document, error)) return lumsar::STATUS_NOT_JSON;
  command.object = document.object();
  const QString key = QStringLiteral("command");
  if (!command.object.contains(key)) {
    qWarning("Cannot get command from json param!");
    return leave(lumsar::STATUS_UNKNOWN_COMMAND);
  }

  const int status =
      dispatch(*this, command.object.value(key).toString(), command, output, outputSize);
  return status == lumsar::STATUS_OK ? leave(status) : status;
}

int Lumsar::TransferCmd2CameraService(QByteArray& data, int type) {
  storeRelaxed(m_replyArrived, false);
  // data() would copy a shared array; the bytes are only read.
  auto* bytes = const_cast<char*>(data.constData());
  return SendIpcData(type, 0, reinterpret_cast<unsigned char*>(bytes), data.size());
}

int Lumsar::RedirectAll(int sessionId) {
  qInfo("[RedirectAll] Enter!");
  QJsonObject object;  // no "command": the message type says what to do
  object[QStringLiteral("vmId")] = m_vmId;
  object[QStringLiteral("sessionId")] = sessionId;
  QByteArray text = QJsonDocument(object).toJson(QJsonDocument::Compact);
  qInfo() << "Json cmd:\n" << QString::fromUtf8(text);
  qInfo("Send RDR ALL command to service!");
  const int status = TransferCmd2CameraService(text, lumsar::IPC_MSG_REDIRECT_ALL);
  qInfo("[RedirectAll] Leave!");
  return status;
}
