#include <atomic>
#include <iostream>

#include "chain/chain.h"
#include "chain/relay.h"

namespace lumsar::test {
namespace {

void say(const char* what) {
  std::cout << what << std::endl;
}

}  // namespace

int runLine(const std::string& clientSide, const std::string& serverSide) {
  std::atomic<int> wanted{0};
  std::atomic<bool> held{false};
  const auto pass = [&](View message, const RawPeer& server) {
    const int kind = static_cast<int>(kindOf(message));
    const bool isFrame = kind == static_cast<int>(CameraDataKind::Frame);
    int expected = kind;
    if (kind != 0 && wanted.compare_exchange_strong(expected, 0)) {
      const std::size_t half = message.size() / 2;
      held = true;
      const bool sent = server.send(message.first(half));
      say("held");
      held.wait(true);
      if (!sent || !server.send(message.subspan(half))) return false;
    } else if (!server.send(message)) {
      return false;
    }
    if (isFrame) say("frame");
    return true;
  };
  const Relay relay(clientSide, serverSide, Relay::Observed::ToServer, pass);
  for (std::string word; std::cin >> word;) {
    if (word == "hold") {
      int kind = 0;
      std::cin >> kind;
      wanted = kind;
      say("will hold");
    } else {
      held = false;
      held.notify_all();
    }
  }
  held = false;
  held.notify_all();
  return 0;
}

}  // namespace lumsar::test
