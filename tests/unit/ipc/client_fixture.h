// A client and a raw service for the tests of client.h and connection.h. The library's threads call
// the recorder.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <future>

#include "ipc/client/client.h"
#include "support/raw_peer.h"
#include "support/resources.h"
#include "support/temporary_directory.h"
#include "unit/ipc/recorder.h"

namespace lumsar::test {

using ipc::ConnectionTimeouts;
using ipc::IpcClient;

inline constexpr ConnectionTimeouts kShort = {milliseconds(300), milliseconds(200),
                                              milliseconds(200)};

class ClientTest : public ::testing::Test {
 protected:
  // Connects a client to the raw service and returns the service's end.
  RawPeer connect() { return connect(client); }
  RawPeer connect(IpcClient& which) {
    auto accepted = std::async(std::launch::async, [this] { return service.welcome(); });
    EXPECT_EQ(which.connect(path.c_str()), 0);
    return accepted.get();
  }

  TemporaryDirectory dir;
  std::string path = dir / "s";
  RawListener service{path};
  Recorder recorder;
  IpcClient client{recorder.params()};
};

}  // namespace lumsar::test
