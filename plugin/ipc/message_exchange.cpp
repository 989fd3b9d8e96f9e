// Messages to and from the camera service.
// Sending: on whatever thread the caller runs. OnReceive: on the IPC library's callback thread.
#include <QDebug>
#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <utility>

#include "channel/event_post.h"
#include "core/guard.h"
#include "core/lengths.h"
#include "core/lumsar.h"
#include "core/relaxed.h"
#include "lumsar/message.h"

namespace {

using lumsar::kHeaderSize;
using lumsar::RedirMsgHeader;

struct Message {
  std::unique_ptr<unsigned char[]> bytes;
  std::size_t size;
};

// The header and, unless `data` is null, `length` bytes of data, in one buffer that is filled once.
Message frame(int type, int param, const unsigned char* data, unsigned int length) {
  const std::size_t size = kHeaderSize + (data != nullptr ? length : 0);
  // Such as of a length that was negative; the library's functions count in int.
  if (size > INT_MAX) throw std::length_error("message too long for the IPC library");
  Message message{std::make_unique_for_overwrite<unsigned char[]>(size), size};
  RedirMsgHeader header;
  header.type = static_cast<std::uint32_t>(type);
  header.length = length;
  header.param = static_cast<std::uint32_t>(param);
  std::memcpy(message.bytes.get(), &header, kHeaderSize);
  if (data != nullptr) std::memcpy(message.bytes.get() + kHeaderSize, data, length);
  return message;
}

// The complete message in consecutive fragments; only the last one's result counts.
int sendInFragments(lumsar::RdpSendFunc send, unsigned char* data, int length) {
  int status = lumsar::STATUS_OK;
  while (length > 0) {
    const int fragment = std::min(lumsar::kRdpFragmentSize, length);
    status = send(data, fragment);
    data += fragment;
    length -= fragment;
  }
  return status;
}

// Hands the service's camera data on to the VM: the same bytes at the same address.
int relayToVm(Lumsar& self, unsigned char* data, int length) {
  if (!loadRelaxed(self.m_channelOpened)) {
    qCritical("OnReceive: spice channel is NOT opened!");
    return lumsar::STATUS_NOT_CONNECTED;
  }
  const std::uint32_t type = lumsar::MSG_DATA;
  std::memcpy(data + offsetof(RedirMsgHeader, type), &type, sizeof type);
  const int channel = loadRelaxed(self.m_dataChannel);
  switch (channel) {
    case DATA_CHANNEL_SPICE:
      return self.m_spiceSendFunc ? self.m_spiceSendFunc(data, length) : lumsar::STATUS_OK;
    case DATA_CHANNEL_RDP:
      if (self.m_rdpSendFunc == nullptr) return lumsar::STATUS_OK;
      return sendInFragments(self.m_rdpSendFunc, data, length);
    default:
      qWarning("[%s] >>>>Unknown data channel[%d]<<<<", "OnReceive", channel);
      return lumsar::STATUS_INVALID_PARAMETER;
  }
}

int postDeviceChange(const unsigned char* message) {
  qInfo("Camera device change!!!");
  const std::uint32_t length = lumsar::readField(message, offsetof(RedirMsgHeader, length));
  auto copy = std::make_unique_for_overwrite<char[]>(length);
  std::memcpy(copy.get(), message + kHeaderSize, length);
  RaiseEvent(lumsar::REDIR_EVENT_DEVICE_CHANGE, std::move(copy), static_cast<int>(length));
  return lumsar::STATUS_OK;
}

}  // namespace

int Lumsar::SendIpcData(int type, int param, unsigned char* data, int length) {
  if (m_ipcClient == nullptr) {
    qWarning("SendIpcData: client is NULL!");
    return lumsar::STATUS_NOT_INITIALIZED;
  }
  const Message message = frame(type, param, data, static_cast<unsigned int>(length));
  const int status =
      m_ipcClientSendData(m_ipcClient, message.bytes.get(), static_cast<int>(message.size));
  if (status != lumsar::STATUS_OK) qWarning("Send ipc data failed! error:%d", status);
  return status;
}

int Lumsar::IpcSyncCall(int type, unsigned char* request, unsigned int requestLength,
                        unsigned char* reply, unsigned int* replyLength) {
  if (m_ipcClient == nullptr) {
    qWarning("IpcSyncCall: client is NULL!");
    return lumsar::STATUS_NOT_INITIALIZED;
  }
  const Message message = frame(type, 0, request, requestLength);
  const int status =
      m_ipcClientSyncCall(m_ipcClient, message.bytes.get(), static_cast<unsigned int>(message.size),
                          reply, replyLength);
  if (status == lumsar::STATUS_OK) {
    qDebug() << "IpcSyncCall: get result! size:" << *replyLength;
    return status;
  }
  qWarning("Ipc sync call failed! vd_ipc error:%d", status);
  if (status != lumsar::kIpcReplyTooLarge) return status;
  qWarning("IpcSyncCall: output buffer size too small!");
  return lumsar::STATUS_REPLY_TOO_LARGE;
}

int Lumsar::UnredirectAll() {
  qInfo("Unredirect all cameras!");
  return SendIpcData(lumsar::IPC_MSG_UNSHARE_ALL, 0, nullptr, 0);
}

int Lumsar::UnredirectAllVCams() {
  qInfo("UnredirectAllVCams: send cmd to vm!");
  if (!m_spiceSendFunc) return lumsar::STATUS_OK;
  RedirMsgHeader message;
  message.type = lumsar::MSG_UNREDIRECT_ALL;
  return m_spiceSendFunc(reinterpret_cast<unsigned char*>(&message), kHeaderSize);
}

int Lumsar::OnReceive(int /*connectId*/, unsigned char* data, int length, void* userData) {
  return guarded("OnReceive", [=] {
    if (!isComplete("OnReceive", data, length)) {
      return static_cast<int>(lumsar::STATUS_INVALID_PARAMETER);
    }
    if (lumsar::readField(data, offsetof(RedirMsgHeader, magic)) != lumsar::kMagic) {
      qWarning("[%s][%d] Invalid message magic!", "OnReceive", 180);
      return static_cast<int>(lumsar::STATUS_INVALID_MAGIC);
    }
    const std::uint32_t type = lumsar::readField(data, offsetof(RedirMsgHeader, type));
    switch (type) {
      case lumsar::IPC_MSG_DEVICE_CHANGE:
        return postDeviceChange(data);
      case lumsar::IPC_MSG_DATA:
        return relayToVm(*static_cast<Lumsar*>(userData), data, length);
      default:
        qWarning("[%s] >>>>Unknown IPC message type[%d]<<<<", "OnReceive", static_cast<int>(type));
        return static_cast<int>(lumsar::STATUS_INVALID_PARAMETER);
    }
  });
}
