// The page's one connection: the frames of all cameras that it shows, and the status every second.
//
//   status LENGTH\n  JSON  \n        frame HANDLE LENGTH\n  JPEG  \n
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "outputs/web/http_server.h"
#include "outputs/web/view_stream.h"

namespace lumsar::agent {

struct LiveCamera {
  int handle = 0;
  std::shared_ptr<ViewStream> stream;
};

// Until the browser disconnects. `status` gives the latest JSON, and may take a moment.
void sendFeed(const std::vector<LiveCamera>& cameras, const std::function<std::string()>& status,
              HttpResponse& response);

}  // namespace lumsar::agent
