// The status of the program: one JSON text, printed at the end, kept in a file, shown on the
// page; on a terminal, a table.
#pragma once

#include <string>
#include <vector>

#include "session/connection.h"

namespace lumsar::agent {

struct Status {
  Protocol protocol = Protocol::Spice;
  double seconds = 0;
  std::string direct;
  std::uint16_t viewPort = 0;
  std::vector<ConnectionStatus> connections;
  std::vector<CameraStatus> cameras;  // first those that have been removed
};

std::string toJson(const Status& status);
// What a person reads of the cameras.
std::string toTable(const Status& status);

}  // namespace lumsar::agent
