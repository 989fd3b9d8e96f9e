// Handler and ShareAll: the VM's messages, one complete message per call, and the sharing of all
// cameras with a VM session. Called by the host on the thread on which it receives.
#include <QDebug>
#include <cstring>

#include "channel/event_post.h"
#include "core/exports.h"
#include "core/guard.h"
#include "core/lengths.h"
#include "core/lumsar.h"
#include "core/relaxed.h"
#include "lumsar/message.h"

namespace {

using lumsar::RedirMsgHeader;

constexpr const char* kFunction = "Handler";
// The numbers in the log lines below tell their places apart and stay as they are.

void sendPolicy(Lumsar& self) {
  QByteArray policy = self.m_policyJson.toUtf8();
  policy.append('\0');  // a policy travels with its terminator
  self.SendIpcData(lumsar::IPC_MSG_POLICY, 0, reinterpret_cast<unsigned char*>(policy.data()),
                   policy.size());
}

void receiveHello(Lumsar& self, const RedirMsgHeader& header, const lumsar::HelloPayload& hello) {
  qInfo("[%s] Receive HELLO from remote VM!", kFunction);
  const std::uint16_t ownToken = loadRelaxed(self.m_token);
  if (hello.token != ownToken) {
    qWarning("[%s][%d] Token is dismatch! Recv[%d], Own[%d]", kFunction, 1392, hello.token,
             ownToken);
    return;
  }
  qInfo(
      "[%s] Camera channel with token[%d] connected SUCCESS! VM session[%d], version[%d.%d], "
      "capabilities[0x%x]",
      kFunction, hello.token, hello.vmSession, header.vmMajor, header.vmMinor, header.capabilities);
  self.UpdatePolicy(header.vmMajor, header.vmMinor);
  if (!self.IsIpcConnected()) {
    qWarning("[%s][%d] >>>>IPC is NOT connected!<<<<", kFunction, 1386);
    return;
  }
  sendPolicy(self);
  if ((header.capabilities & lumsar::CAP_SHARE_ALL) != 0) {
    qInfo("[%s] RDP vchannel is ready to share all cameras!", kFunction);
    ShareAll(hello.vmSession);
  } else {
    RaiseEvent(lumsar::REDIR_EVENT_READY, nullptr, 0);
    qInfo("[%s] Post event: LUMSAR is ready!", kFunction);
  }
}

void channelOpened(Lumsar& self) {
  qInfo("[%s] Remote RDP vchannel is Opened! Unredirect all cameras first...", kFunction);
  self.UnredirectAll();
  qInfo("[%s] And, then, try to send HELLO to VM...", kFunction);
  self.RdpSendHello();
}

void dispatch(Lumsar& self, unsigned char* data, const RedirMsgHeader& header) {
  unsigned char* payload = data + lumsar::kHeaderSize;
  switch (header.type) {
    case lumsar::MSG_HELLO: {
      lumsar::HelloPayload hello;
      std::memcpy(&hello, payload, sizeof hello);
      receiveHello(self, header, hello);
      break;
    }
    case lumsar::MSG_DATA:
      self.SendIpcData(lumsar::IPC_MSG_DATA, 0, payload, static_cast<int>(header.length));
      break;
    case lumsar::MSG_CHANNEL_OPENED:
      channelOpened(self);
      break;
    default:
      qWarning("[%s][%d] Receive unknown message type:%d", kFunction, 1413,
               static_cast<int>(header.type));
  }
}

void handle(unsigned char* data, int len) {
  if (data == nullptr || len <= 0) {
    qCritical("[%s][%d] Invalid parameter!", kFunction, 1321);
    return;
  }
  Lumsar* self = Lumsar::GetInstance();
  if (self == nullptr) {
    qCritical("[%s][%d] Get Lumsar obj failed!", kFunction, 1328);
    return;
  }
  if (!loadRelaxed(self->m_initialized)) {
    qCritical("[%s][%d] Lumsar NOT initialized!", kFunction, 1333);
    return;
  }
  if (!isComplete(kFunction, data, len)) return;
  const std::uint32_t magic = lumsar::readField(data, offsetof(RedirMsgHeader, magic));
  if (magic != lumsar::kMagic) {
    qCritical("[%s][%d] Invalid magic:0x%x!", kFunction, 1340, magic);
    return;
  }
  // From here on the header is trusted.
  dispatch(*self, data, lumsar::readHeader(data));
}

int shareAll(int sessionId) {
  qInfo() << "[ShareAll] Enter! session id:" << sessionId;
  if (sessionId < 0) {
    qWarning() << "[ShareAll] >>>>Invalid session id:" << sessionId << "<<<<\n";
    return lumsar::STATUS_INVALID_PARAMETER;
  }
  Lumsar* self = Lumsar::GetInstance();
  if (self == nullptr) {
    qCritical("[ShareAll] >>>>Get Lumsar obj failed!<<<<\n");
    return lumsar::STATUS_NO_OBJECT;
  }
  if (!loadRelaxed(self->m_initialized)) {
    qCritical("[ShareAll] >>>>lumsar NOT initialized!<<<<\n");
    return lumsar::STATUS_NOT_INITIALIZED;
  }
  const int status = self->RedirectAll(sessionId);
  qInfo("[ShareAll] Leave!");
  return status;
}

}  // namespace

void Handler(unsigned char* data, int len) {
  guarded(kFunction, [=] {
    handle(data, len);
    return lumsar::STATUS_OK;
  });
}

int ShareAll(int sessionId) {
  return guarded("ShareAll", [=] { return shareAll(sessionId); });
}
