// Steps of a host, a camera service or a VM, for random sequences: an action and a number that
// picks its arguments.
#pragma once

#include <cstddef>
#include <string>

#include "support/plugin/wire.h"

namespace lumsar::test {

enum class Action {
  Init,
  RdpInit,
  ChannelEvent,
  RdpChannelEvent,
  Command,
  VmHello,
  VmMessage,
  ShareAll,
  DeInit,
  RdpDeInit,
  ServiceMessage,
  ConnectedCallback,
  SentCallback,
  ClosedCallback,
  LoseConnection,
  RestoreConnection,
  FailNextSend,
  RefuseAtHost,
  RefuseConnect,
};
inline constexpr unsigned kActions = static_cast<unsigned>(Action::RefuseConnect) + 1;

// One step; `choice` picks its arguments.
struct Step {
  Action action{};
  unsigned choice = 0;

  std::string text() const;
};

// The arguments that a step's choice stands for.
enum class InitWith { Everything, DefaultConfig, NoJson, NoLibrary, NoVmId, NoSend, NoEvent };
InitWith initWith(const Step& step);
std::string configOf(InitWith with);
std::string vmIdOf(const Step& step);
int numberOf(const Step& step);               // -1, 0, 1, 2: channel events, sessions
std::size_t commandNumber(const Step& step);  // in the order of model_steps.cpp
const std::string& commandOf(const Step& step);
enum class ListWith { Room, NoRoom, Error, NoAnswer };
ListWith listWith(const Step& step);
Bytes vmMessageOf(const Step& step);
VmHello vmHelloOf(const Step& step, unsigned int token);
Bytes serviceMessageOf(const Step& step);

extern const std::string kModelCameras;     // what the service answers
inline constexpr int kModelListRoom = 128;  // bytes
inline constexpr int kModelListNoRoom = 8;
inline constexpr int kModelRefusal = 42;  // of a host, a library or a service

}  // namespace lumsar::test
