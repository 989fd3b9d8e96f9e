// lumsar-rdp: a headless RDP client that has nothing but the camera channel.
#include "app/host_app.h"
#include "app/rdp_options.h"
#include "rdp/rdp_transport.h"

int main(int argc, char** argv) {
  using namespace lumsar::host;
  RdpOptions own;
  return runHostProgram(
      argc, argv,
      {.program = "lumsar-rdp",
       .usage = "[OPTION...] HOST[:PORT]|unix:PATH",
       .example = "lumsar-rdp desktop.example --credentials FILE --exec 'share 0' --duration 8h",
       .protocol = Protocol::Rdp,
       .addOwn = [&own](auto& line) { own.addTo(line); },
       .environment = {{"LUMSAR_USER, LUMSAR_PASSWORD",
                        "who logs on, unless --credentials is given"}}},
      [&own](asio::io_context& loop, SendQueue& queue, Inbox& inbox, const Options& options) {
        return std::make_unique<RdpTransport>(loop, queue, inbox, rdpTarget(options, own));
      });
}
