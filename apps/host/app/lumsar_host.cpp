// lumsar-host: a host whose channel to the VM is a plain socket, as a SPICE or an RDP host.
#include "app/host_app.h"
#include "protocol/access_token.h"
#include "transport/socket_transport.h"

int main(int argc, char** argv) {
  using namespace lumsar;
  using namespace lumsar::host;
  std::string tokenFile;
  return runHostProgram(
      argc, argv,
      {.program = "lumsar-host",
       .usage = "[OPTION...] unix:PATH|tcp:HOST:PORT",
       .example = "lumsar-host tcp:127.0.0.1:4711 --exec 'share 0' --duration 8h",
       .protocol = {},
       .addOwn =
           [&tokenFile](base::CommandLine& line) {
             line.option("--token-file FILE", tokenFile,
                         "over TCP, send the secret in FILE first: the guest agent's token file");
           }},
      [&tokenFile](asio::io_context& loop, SendQueue& queue, Inbox& inbox, const Options& options) {
        return std::make_unique<SocketTransport>(loop, queue, inbox, options.vm,
                                                 protocol::readAccessLine(tokenFile));
      });
}
