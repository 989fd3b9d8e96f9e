// A small service for tests that need one in another process: answers calls and sends back what it
// gets. `echo_service PATH [UID]`; with UID it becomes that user first. Main thread only.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "ipc/server/server.h"
#include "lumsar/ipc_transport.h"

namespace {

using namespace lumsar;

class Echo : public ipc::IpcServerEvents {
 public:
  ipc::IpcServer* server = nullptr;

  void onClient(ipc::ClientId, const std::string&) override {}
  void onMessage(ipc::ClientId client, std::span<unsigned char> bytes) override {
    const RedirMsgHeader header = readHeader(bytes.data());
    server->reply(client, header, {header.type, {bytes.subspan(kHeaderSize)}});
  }
  void onClientGone(ipc::ClientId, const std::string&) override {}
  void onWarning(const std::string& text) override { std::fprintf(stderr, "%s\n", text.c_str()); }
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  if (argc > 2 && ::setuid(static_cast<uid_t>(std::atoi(argv[2]))) != 0) return 1;
  try {
    asio::io_context io(1);
    Echo echo;
    ipc::IpcServer server(
        io, base::SocketListener::at({argv[1], {}, 0}, base::SocketListener::Directory::Make),
        echo);
    echo.server = &server;
    std::puts("ready");
    std::fflush(stdout);
    io.run();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}
