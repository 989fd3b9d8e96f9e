// include/lumsar/message.h and vdi_ipc.h: layouts, byte for byte, and the values of all names.
// Compares with bytes written out by hand.
// Reentrant, no plug-in in the process.
#include "lumsar/message.h"

#include <gtest/gtest.h>

#include "lumsar/plugin.h"
#include "lumsar/vdi_ipc.h"
#include "support/plugin/wire.h"

namespace lumsar_test {
namespace {

using lumsar::HelloMessage;
using lumsar::RedirMsgHeader;

template <class T>
Bytes image(const T& value) {
  const auto* begin = reinterpret_cast<const unsigned char*>(&value);
  return {begin, begin + sizeof value};
}

TEST(Message, HeaderOffsets) {
  EXPECT_EQ(sizeof(RedirMsgHeader), 32U);
  EXPECT_EQ(offsetof(RedirMsgHeader, magic), 0U);
  EXPECT_EQ(offsetof(RedirMsgHeader, type), 4U);
  EXPECT_EQ(offsetof(RedirMsgHeader, length), 8U);
  EXPECT_EQ(offsetof(RedirMsgHeader, param), 12U);
  EXPECT_EQ(offsetof(RedirMsgHeader, clientMajor), 16U);
  EXPECT_EQ(offsetof(RedirMsgHeader, clientMinor), 17U);
  EXPECT_EQ(offsetof(RedirMsgHeader, vmMajor), 18U);
  EXPECT_EQ(offsetof(RedirMsgHeader, vmMinor), 19U);
  EXPECT_EQ(offsetof(RedirMsgHeader, capabilities), 20U);
  EXPECT_EQ(offsetof(RedirMsgHeader, reserved), 24U);
}

TEST(Message, FreshHeaderIsAnEmptyMessageOfType0) {
  EXPECT_EQ(image(RedirMsgHeader{}), (Bytes{0x4D, 0x41, 0x43, 0x56} + Bytes(28)));
}

TEST(Message, EveryFieldByteForByte) {
  RedirMsgHeader header;
  header.type = 0x04030201;
  header.length = 0x08070605;
  header.param = 0x0C0B0A09;
  header.clientMajor = 0x0D;
  header.clientMinor = 0x0E;
  header.vmMajor = 0x0F;
  header.vmMinor = 0x10;
  header.capabilities = 0x14131211;
  for (unsigned char i = 0; i < 8; ++i) header.reserved[i] = static_cast<unsigned char>(0x15 + i);
  Bytes expected{0x4D, 0x41, 0x43, 0x56};
  for (unsigned char i = 1; i <= 28; ++i) expected.push_back(i);
  EXPECT_EQ(image(header), expected);
}

TEST(Message, HelloIs36Bytes) {
  EXPECT_EQ(sizeof(HelloMessage), 36U);
  EXPECT_EQ(offsetof(HelloMessage, payload), 32U);
  HelloMessage hello;
  hello.header.length = 4;
  hello.header.vmMajor = 2;
  hello.header.vmMinor = 13;
  hello.header.capabilities = 0x10;
  hello.payload.token = 0x1234;
  hello.payload.vmSession = 0x5678;
  EXPECT_EQ(
      image(hello),
      message(VmHello{
          .token = 0x1234, .session = 0x5678, .major = 2, .minor = 13, .capabilities = 0x10}));
}

TEST(Message, ReadHeaderTakesUnalignedBytes) {
  const Bytes bytes = Bytes{0xEE} + message(7, "abc", 0x01020304);
  const RedirMsgHeader header = lumsar::readHeader(bytes.data() + 1);
  EXPECT_EQ(header.magic, 0x5643414DU);
  EXPECT_EQ(header.type, 7U);
  EXPECT_EQ(header.length, 3U);
  EXPECT_EQ(header.param, 0x01020304U);
}

TEST(Message, BigEndianMagicIsAnother) {
  const Bytes bytes = bytesOf("VCAM") + Bytes(28);
  EXPECT_NE(lumsar::readHeader(bytes.data()).magic, lumsar::kMagic);
}

TEST(Message, Types) {
  EXPECT_EQ(lumsar::MSG_HELLO, 0U);
  EXPECT_EQ(lumsar::MSG_DATA, 1U);
  EXPECT_EQ(lumsar::MSG_UNREDIRECT_ALL, 2U);
  EXPECT_EQ(lumsar::MSG_CHANNEL_OPENED, 3U);
  EXPECT_EQ(lumsar::IPC_MSG_CAMERA_LIST, 1U);
  EXPECT_EQ(lumsar::IPC_MSG_SHARE, 2U);
  EXPECT_EQ(lumsar::IPC_MSG_CONNECT_VM, 3U);
  EXPECT_EQ(lumsar::IPC_MSG_UNSHARE, 4U);
  EXPECT_EQ(lumsar::IPC_MSG_UNSHARE_ALL, 5U);
  EXPECT_EQ(lumsar::IPC_MSG_DATA, 6U);
  EXPECT_EQ(lumsar::IPC_MSG_POLICY, 7U);
  EXPECT_EQ(lumsar::IPC_MSG_DEVICE_CHANGE, 8U);
  EXPECT_EQ(lumsar::IPC_MSG_REDIRECT_ALL, 9U);
  EXPECT_EQ(lumsar::CAP_BASE_1 | lumsar::CAP_BASE_2, 3U);
  EXPECT_EQ(lumsar::CAP_SHARE_ALL, 0x10U);
  EXPECT_EQ(lumsar::kRdpFragmentSize, 1536);
}

TEST(Message, EventsAndStatuses) {
  EXPECT_EQ(lumsar::REDIR_EVENT_READY, 1);
  EXPECT_EQ(lumsar::REDIR_EVENT_DEVICE_CHANGE, 2);
  EXPECT_EQ(lumsar::REDIR_EVENT_IPC_CLOSED, 3);
  EXPECT_EQ(lumsar::CHANNEL_EVENT_OPENED, 0);
  EXPECT_EQ(lumsar::CHANNEL_EVENT_CLOSED, 1);
  EXPECT_EQ(lumsar::STATUS_OK, 0);
  EXPECT_EQ(lumsar::STATUS_INIT_FAILED, 1);
  EXPECT_EQ(lumsar::STATUS_INVALID_PARAMETER, 2);
  EXPECT_EQ(lumsar::STATUS_INVALID_MAGIC, 5);
  EXPECT_EQ(lumsar::STATUS_UNKNOWN_COMMAND, 7);
  EXPECT_EQ(lumsar::STATUS_NOT_JSON, 11);
  EXPECT_EQ(lumsar::STATUS_MISSING_ITEM, 12);
  EXPECT_EQ(lumsar::STATUS_NO_OBJECT, 14);
  EXPECT_EQ(lumsar::STATUS_REPLY_TOO_LARGE, 15);
  EXPECT_EQ(lumsar::STATUS_NOT_INITIALIZED, 16);
  EXPECT_EQ(lumsar::STATUS_ALREADY_INITIALIZED, 17);
  EXPECT_EQ(lumsar::STATUS_NOT_CONNECTED, 30);
  EXPECT_EQ(lumsar::STATUS_DISCONNECTED, 31);
  EXPECT_EQ(lumsar::STATUS_ALREADY_CONNECTED, 34);
  EXPECT_EQ(lumsar::STATUS_LIST_CALL_FAILED, 35);
  EXPECT_EQ(lumsar::STATUS_LIST_ERROR, 45);
}

TEST(IpcRecord, LayoutIs72Bytes) {
  using lumsar::IpcClientParams;
  EXPECT_EQ(sizeof(IpcClientParams), 72U);
  EXPECT_EQ(offsetof(IpcClientParams, onConnect), 0U);
  EXPECT_EQ(offsetof(IpcClientParams, onSend), 8U);
  EXPECT_EQ(offsetof(IpcClientParams, onReceive), 16U);
  EXPECT_EQ(offsetof(IpcClientParams, onClose), 24U);
  EXPECT_EQ(offsetof(IpcClientParams, userData), 32U);
  EXPECT_EQ(offsetof(IpcClientParams, clientName), 40U);
  EXPECT_EQ(image(IpcClientParams{}), Bytes(72));
  EXPECT_EQ(lumsar::kIpcReplyTooLarge, 8);
}

}  // namespace
}  // namespace lumsar_test
