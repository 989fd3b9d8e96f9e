#include "support/plugin/model_steps.h"

#include <array>

#include "support/plugin/plugin_test.h"

namespace lumsar::test {
namespace {

constexpr std::array kNames{"Init",         "RdpInit",        "ChannelEvent",   "RdpChannelEvent",
                            "Command",      "VmHello",        "VmMessage",      "ShareAll",
                            "DeInit",       "RdpDeInit",      "ServiceMessage", "ConnectedCallback",
                            "SentCallback", "ClosedCallback", "LoseConnection", "RestoreConnection",
                            "FailNextSend", "RefuseAtHost",   "RefuseConnect"};
static_assert(kNames.size() == kActions);

const std::array<std::string, 13> kCommands{
    R"({"command":"list"})",
    R"({"command":"list","more":1})",
    R"({"command":"share","deviceId":"cam"})",
    R"({"command":"share","id":"cam"})",
    R"({"command":"unshare","deviceId":"cam"})",
    R"({"command":"unshare"})",
    R"({"command":"unshareall","x":1})",
    R"({"command":"setpolicy","policy":[],"version":"9.9"})",
    R"({"command":"LIST"})",
    R"({"command":3})",
    R"({"deviceId":"cam"})",
    R"({"command":)",
    R"({"command":"sharetcp","deviceId":"cam","remoteIp":"10.0.0.1"})",
};

}  // namespace

const std::string kModelCameras = R"([{"id":"cam"}])";

std::string Step::text() const {
  return std::string(kNames[static_cast<std::size_t>(action)]) + "(" + std::to_string(choice) + ")";
}

InitWith initWith(const Step& step) {
  constexpr std::array kRare{InitWith::DefaultConfig, InitWith::NoJson, InitWith::NoLibrary,
                             InitWith::NoVmId,        InitWith::NoSend, InitWith::NoEvent};
  const unsigned pick = step.choice % 14;
  return pick < kRare.size() ? kRare[pick] : InitWith::Everything;
}

std::string configOf(InitWith with) {
  switch (with) {
    case InitWith::DefaultConfig:
      return "";
    case InitWith::NoJson:
      return "no JSON";
    case InitWith::NoLibrary:
      return configFor("nowhere");
    default:
      return kConfig;
  }
}

std::string vmIdOf(const Step& step) {
  return step.choice % 3 == 0 ? "vm-8" : "vm-7";
}

int numberOf(const Step& step) {
  return static_cast<int>(step.choice % 4) - 1;
}

std::size_t commandNumber(const Step& step) {
  return step.choice % kCommands.size();
}

const std::string& commandOf(const Step& step) {
  return kCommands[commandNumber(step)];
}

ListWith listWith(const Step& step) {
  return static_cast<ListWith>(step.choice / kCommands.size() % 4);
}

Bytes vmMessageOf(const Step& step) {
  switch (step.choice % 6) {
    case 0:
      return {};
    case 1: {
      Bytes bytes = message(1, "data");
      bytes[0] = 0;
      return bytes;
    }
    case 2:
      return message(2 + step.choice % 2 * 5);
    case 3:
      return message(1, pattern(step.choice % 3000));
    default:
      return message(3);
  }
}

VmHello vmHelloOf(const Step& step, unsigned int token) {
  return {.token = step.choice % 5 == 0 ? 0xFFFFU : token,
          .session = step.choice % 7,
          .major = static_cast<unsigned char>(1 + step.choice % 2),
          .minor = static_cast<unsigned char>(step.choice % 20),
          .capabilities = step.choice % 3 == 0 ? 0x10U : 0x03U};
}

Bytes serviceMessageOf(const Step& step) {
  switch (step.choice % 8) {
    case 0: {
      Bytes bytes = message(6, "data");
      bytes[3] ^= 1U;
      return bytes;
    }
    case 1:
      return message(1 + step.choice % 5);
    case 2:
    case 3:
      return message(8, pattern(step.choice % 300));
    default:
      return message(6, pattern(step.choice % 5000), step.choice);
  }
}

}  // namespace lumsar::test
