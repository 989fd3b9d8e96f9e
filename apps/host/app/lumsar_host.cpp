// lumsar-host: a host whose channel to the VM is a plain socket, as a SPICE or an RDP host.
#include "app/host_app.h"
#include "transport/socket_transport.h"

int main(int argc, char** argv) {
  using namespace lumsar::host;
  const ProgramText text{
      .name = "lumsar-host",
      .synopsis = "[OPTION...] --vm unix:PATH|tcp:HOST:PORT",
      .addressHelp =
          "  --vm ADDRESS         where lumsar-agent listens: unix:PATH or tcp:HOST:PORT\n",
      .kind = {},
  };
  return runHostProgram(argc, argv, text,
                        [](asio::io_context& loop, SendQueue& queue, const Options& options) {
                          return std::make_unique<SocketTransport>(loop, queue, options.vm);
                        });
}
