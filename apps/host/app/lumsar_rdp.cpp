// lumsar-rdp: a headless RDP client that has nothing but the camera channel.
#include "app/host_app.h"
#include "app/rdp_address.h"
#include "rdp/rdp_transport.h"

int main(int argc, char** argv) {
  using namespace lumsar::host;
  const ProgramText text{
      .name = "lumsar-rdp",
      .synopsis = "[OPTION...] HOST[:PORT]|unix:PATH",
      .addressHelp = "",
      .kind = Kind::Rdp,
      .own = rdpOptions(),
  };
  return runHostProgram(argc, argv, text,
                        [](asio::io_context& loop, SendQueue& queue, const Options& options) {
                          return std::make_unique<RdpTransport>(loop, queue, rdpTarget(options));
                        });
}
