// Messages, the handshake and the names of an assembler's faults.
#include "protocol/message.h"

#include <gtest/gtest.h>

#include "lumsar/assembler.h"
#include "protocol/hello.h"
#include "protocol/names.h"

namespace lumsar::test {
namespace {

using namespace protocol;

TEST(Message, HoldsHeaderAndPayloadInOneBuffer) {
  Message made(IPC_MSG_DEVICE_CHANGE, {bytesOf("hel"), bytesOf(""), bytesOf("lo")}, 7);
  const RedirMsgHeader header = readHeader(made.bytes().data());
  EXPECT_EQ(header.magic, kMagic);
  EXPECT_EQ(header.type, IPC_MSG_DEVICE_CHANGE);
  EXPECT_EQ(header.length, 5U);
  EXPECT_EQ(header.param, 7U);
  EXPECT_EQ(header.capabilities, 0U);
  EXPECT_TRUE(std::ranges::all_of(header.reserved, [](auto byte) { return byte == 0; }));
  EXPECT_EQ(made.size(), kHeaderSize + 5);
  EXPECT_EQ(made.bytes().size(), made.size());
  EXPECT_EQ(made.payload().data(), made.bytes().data() + kHeaderSize);
  EXPECT_TRUE(std::ranges::equal(made.payload(), bytesOf("hello")));
}

TEST(Message, MayBeAHeaderAloneOrHaveAPayloadToFill) {
  EXPECT_EQ(Message(MSG_CHANNEL_OPENED).size(), kHeaderSize);
  Message filled(MSG_DATA, 3);
  std::ranges::fill(filled.payload(), 'x');
  EXPECT_EQ(filled.header().length, 3U);
  EXPECT_EQ(filled.bytes().back(), 'x');
}

TEST(Hello, CarriesTokenVersionAndCapabilities) {
  const Message hello = helloMessage(0xABCD);
  const auto read = readHello(hello.bytes());
  ASSERT_TRUE(read);
  EXPECT_EQ(read->payload.token, 0xABCD);
  EXPECT_EQ(read->payload.vmSession, 0);
  EXPECT_EQ(read->header.length, sizeof(HelloPayload));
  EXPECT_EQ(read->header.clientMajor, kProtocolMajor);
  EXPECT_EQ(read->header.clientMinor, kProtocolMinor);
  EXPECT_EQ(read->header.vmMajor, 0);
  EXPECT_EQ(read->header.capabilities, CAP_BASE_1 | CAP_BASE_2);
}

TEST(Hello, IsAnsweredWithItsClientVersion) {
  RedirMsgHeader hello;
  hello.clientMajor = 9;
  hello.clientMinor = 8;
  const Message plain = answerMessage(hello, {.payload = {7, 3}});
  const auto read = readHello(plain.bytes());
  ASSERT_TRUE(read);
  EXPECT_EQ(read->header.clientMajor, 9);
  EXPECT_EQ(read->header.clientMinor, 8);
  EXPECT_EQ(read->header.vmMajor, kProtocolMajor);
  EXPECT_EQ(read->header.capabilities, CAP_BASE_1 | CAP_BASE_2);
  EXPECT_EQ(read->payload.token, 7);
  EXPECT_EQ(read->payload.vmSession, 3);
  const Message all = answerMessage(hello, {.vmMajor = 2, .vmMinor = 5, .shareAll = true});
  EXPECT_EQ(all.header().capabilities, CAP_BASE_1 | CAP_BASE_2 | CAP_SHARE_ALL);
  EXPECT_EQ(all.header().vmMajor, 2);
  EXPECT_EQ(all.header().vmMinor, 5);
}

TEST(Hello, IsNotReadFromAnythingElse) {
  const Message hello = helloMessage(1);
  EXPECT_FALSE(readHello(hello.bytes().first(hello.size() - 1)));
  EXPECT_FALSE(readHello({}));
  EXPECT_FALSE(readHello(Message(MSG_DATA, {bytesOf("abcd")}).bytes()));
}

TEST(Hello, TokensDiffer) {
  bool differ = false;
  for (int i = 0; i < 20; ++i) differ = differ || newToken() != newToken();
  EXPECT_TRUE(differ);
}

TEST(Names, FitTheirChannels) {
  EXPECT_LE(sizeof kRdpChannelName, 8U);
  EXPECT_STREQ(kSpicePortName, "org.lumsar.camera.0");
  EXPECT_STREQ(kDefaultIpcChannel, "lumsar");
}

TEST(Fault, HasAText) {
  EXPECT_STREQ(faultText(MessageAssembler::Fault::None), "");
  EXPECT_STREQ(faultText(MessageAssembler::Fault::Magic), "sent bytes that are not a message");
  EXPECT_STREQ(faultText(MessageAssembler::Fault::TooLong),
               "announced a message above the size limit");
}

}  // namespace
}  // namespace lumsar::test
