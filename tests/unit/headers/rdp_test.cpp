// The header for C says the same as the one for C++.
#include "lumsar/rdp.h"

#include <gtest/gtest.h>

#include <type_traits>

#include "lumsar/message.h"
#include "lumsar/plugin.h"

namespace lumsar::test {
namespace {

template <class Pointer, class Function>
constexpr bool kSame = std::is_same_v<Pointer, Function*>;

TEST(RdpHeader, IsThatOfTheOther) {
  static_assert(kSame<decltype(LumsarRdp::init), RdpInitFunc>);
  static_assert(kSame<decltype(LumsarRdp::deinit), RdpDeInitFunc>);
  static_assert(kSame<decltype(LumsarRdp::event), RdpEventFunc>);
  static_assert(kSame<decltype(LumsarRdp::handler), HandlerFunc>);
  static_assert(kSame<decltype(LumsarRdp::share_all), ShareAllFunc>);
  static_assert(std::is_same_v<LumsarRdpSend, RdpSendFunc>);
  EXPECT_EQ(int{LUMSAR_OK}, int{STATUS_OK});
  EXPECT_EQ(int{LUMSAR_INIT_FAILED}, int{STATUS_INIT_FAILED});
  EXPECT_EQ(int{LUMSAR_NOT_INITIALIZED}, int{STATUS_NOT_INITIALIZED});
  EXPECT_EQ(int{LUMSAR_ALREADY_INITIALIZED}, int{STATUS_ALREADY_INITIALIZED});
  EXPECT_EQ(int{LUMSAR_NOT_CONNECTED}, int{STATUS_NOT_CONNECTED});
  EXPECT_EQ(int{LUMSAR_CHANNEL_OPENED}, int{CHANNEL_EVENT_OPENED});
  EXPECT_EQ(int{LUMSAR_CHANNEL_CLOSED}, int{CHANNEL_EVENT_CLOSED});
  EXPECT_EQ(std::size_t{LUMSAR_HEADER_SIZE}, kHeaderSize);
  EXPECT_EQ(LUMSAR_RDP_FRAGMENT_SIZE, int{kRdpFragmentSize});
}

TEST(RdpHeader, TellsTheSizeOfAMessage) {
  RedirMsgHeader header;
  header.length = 0xFFFFFFFF;
  const auto* bytes = reinterpret_cast<const unsigned char*>(&header);
  EXPECT_EQ(lumsar_message_size(bytes), std::size_t{LUMSAR_HEADER_SIZE} + 0xFFFFFFFF);
  ++header.magic;
  EXPECT_EQ(lumsar_message_size(bytes), 0U);
}

}  // namespace
}  // namespace lumsar::test
