// The public headers: layouts, byte for byte, and the values of all names.
// Compares with bytes written out by hand.
#include "lumsar/message.h"

#include <gtest/gtest.h>

#include "lumsar/camera_data.h"
#include "lumsar/plugin.h"
#include "lumsar/vdi_ipc.h"
#include "support/plugin/wire.h"

namespace lumsar::test {
namespace {

template <class T>
Bytes image(const T& value) {
  const auto* begin = reinterpret_cast<const unsigned char*>(&value);
  return {begin, begin + sizeof value};
}

// 1, 2, 3 and so on.
Bytes ascending(unsigned char size) {
  Bytes bytes;
  for (unsigned char i = 1; i <= size; ++i) bytes.push_back(i);
  return bytes;
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
  EXPECT_EQ(image(header), (Bytes{0x4D, 0x41, 0x43, 0x56} + ascending(28)));
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
  const RedirMsgHeader header = readHeader(bytes.data() + 1);
  EXPECT_EQ(header.magic, 0x5643414DU);
  EXPECT_EQ(header.type, 7U);
  EXPECT_EQ(header.length, 3U);
  EXPECT_EQ(header.param, 0x01020304U);
}

TEST(Message, BigEndianMagicIsAnother) {
  const Bytes bytes = bytesOf("VCAM") + Bytes(28);
  EXPECT_NE(readHeader(bytes.data()).magic, kMagic);
}

TEST(Message, Types) {
  EXPECT_EQ(MSG_HELLO, 0U);
  EXPECT_EQ(MSG_DATA, 1U);
  EXPECT_EQ(MSG_UNREDIRECT_ALL, 2U);
  EXPECT_EQ(MSG_CHANNEL_OPENED, 3U);
  EXPECT_EQ(IPC_MSG_CAMERA_LIST, 1U);
  EXPECT_EQ(IPC_MSG_SHARE, 2U);
  EXPECT_EQ(IPC_MSG_CONNECT_VM, 3U);
  EXPECT_EQ(IPC_MSG_UNSHARE, 4U);
  EXPECT_EQ(IPC_MSG_UNSHARE_ALL, 5U);
  EXPECT_EQ(IPC_MSG_DATA, 6U);
  EXPECT_EQ(IPC_MSG_POLICY, 7U);
  EXPECT_EQ(IPC_MSG_DEVICE_CHANGE, 8U);
  EXPECT_EQ(IPC_MSG_REDIRECT_ALL, 9U);
  EXPECT_EQ(CAP_BASE_1 | CAP_BASE_2, 3U);
  EXPECT_EQ(CAP_SHARE_ALL, 0x10U);
  EXPECT_EQ(kRdpFragmentSize, 1536);
}

TEST(Message, EventsAndStatuses) {
  EXPECT_EQ(REDIR_EVENT_READY, 1);
  EXPECT_EQ(REDIR_EVENT_DEVICE_CHANGE, 2);
  EXPECT_EQ(REDIR_EVENT_IPC_CLOSED, 3);
  EXPECT_EQ(CHANNEL_EVENT_OPENED, 0);
  EXPECT_EQ(CHANNEL_EVENT_CLOSED, 1);
  EXPECT_EQ(STATUS_OK, 0);
  EXPECT_EQ(STATUS_INIT_FAILED, 1);
  EXPECT_EQ(STATUS_INVALID_PARAMETER, 2);
  EXPECT_EQ(STATUS_INVALID_MAGIC, 5);
  EXPECT_EQ(STATUS_UNKNOWN_COMMAND, 7);
  EXPECT_EQ(STATUS_NOT_JSON, 11);
  EXPECT_EQ(STATUS_MISSING_ITEM, 12);
  EXPECT_EQ(STATUS_NO_OBJECT, 14);
  EXPECT_EQ(STATUS_REPLY_TOO_LARGE, 15);
  EXPECT_EQ(STATUS_NOT_INITIALIZED, 16);
  EXPECT_EQ(STATUS_ALREADY_INITIALIZED, 17);
  EXPECT_EQ(STATUS_NOT_CONNECTED, 30);
  EXPECT_EQ(STATUS_DISCONNECTED, 31);
  EXPECT_EQ(STATUS_ALREADY_CONNECTED, 34);
  EXPECT_EQ(STATUS_LIST_CALL_FAILED, 35);
  EXPECT_EQ(STATUS_LIST_ERROR, 45);
}

TEST(IpcRecord, LayoutIs72Bytes) {
  EXPECT_EQ(sizeof(IpcClientParams), 72U);
  EXPECT_EQ(offsetof(IpcClientParams, onConnect), 0U);
  EXPECT_EQ(offsetof(IpcClientParams, onSend), 8U);
  EXPECT_EQ(offsetof(IpcClientParams, onReceive), 16U);
  EXPECT_EQ(offsetof(IpcClientParams, onClose), 24U);
  EXPECT_EQ(offsetof(IpcClientParams, userData), 32U);
  EXPECT_EQ(offsetof(IpcClientParams, clientName), 40U);
  EXPECT_EQ(image(IpcClientParams{}), Bytes(72));
  EXPECT_EQ(kIpcReplyTooLarge, 8);
}

// The bytes of `fields`, whose members are set to runs of 1, 2, 3 and so on: each member's place
// and size show.
TEST(CameraRecords, EveryMemberHasItsPlace) {
  const CameraDataHeader header{
      .kind = 0x0201, .zero = 0x0403, .camera = 0x08070605, .time = 0x100F0E0D0C0B0A09};
  EXPECT_EQ(image(header), ascending(16));
  const CameraAnnounced announced{.vendorId = 0x0201,
                                  .productId = 0x0403,
                                  .width = 0x0605,
                                  .height = 0x0807,
                                  .frameInterval = 0x0C0B0A09,
                                  .encoding = 0x100F0E0D,
                                  .idLength = 0x1211,
                                  .nameLength = 0x1413};
  EXPECT_EQ(image(announced), ascending(20));
  const CameraFrame frame{.sequence = 0x04030201,
                          .width = 0x0605,
                          .height = 0x0807,
                          .encoding = 0x0C0B0A09,
                          .flags = 0x100F0E0D};
  EXPECT_EQ(image(frame), ascending(16));
  const CameraStatistics statistics{.frames = 0x0807060504030201,
                                    .bytes = 0x100F0E0D0C0B0A09,
                                    .lost = 0x14131211,
                                    .dropped = 0x18171615,
                                    .latency = 0x1C1B1A19,
                                    .rate = 0x201F1E1D};
  EXPECT_EQ(image(statistics), ascending(32));
  const HelloPayload hello{.token = 0x0201, .vmSession = 0x0403};
  EXPECT_EQ(image(hello), ascending(4));
}

}  // namespace
}  // namespace lumsar::test
