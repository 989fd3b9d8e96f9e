// What the program says of itself: one JSON text, printed at the end, kept in a file, shown on the
// page. Called by Program on the channel's thread.
#ifndef LUMSAR_AGENT_APP_STATUS_H
#define LUMSAR_AGENT_APP_STATUS_H

#include <string>
#include <vector>

#include "session/peer.h"

namespace lumsar::agent {

struct Status {
  std::string kind;
  double seconds = 0;
  std::string direct;
  std::uint16_t viewPort = 0;
  std::vector<PeerStatus> peers;
  std::vector<CameraStatus> cameras;  // first those that are gone
};

std::string toJson(const Status& status);

// Replaces the file as a whole, so that readers never see half of it. False with errno on failure.
bool replaceFile(const std::string& path, const std::string& content);

}  // namespace lumsar::agent

#endif
