// lumsar-spice: a headless SPICE client that has nothing but the camera channel.
#include <cstdlib>
#include <fstream>
#include <stdexcept>

#include "app/host_app.h"
#include "spice/spice_transport.h"

namespace {

using lumsar::host::Options;

std::string own(const Options& options, const char* name) {
  const auto found = options.own.find(name);
  return found == options.own.end() ? std::string() : found->second;
}

// From a file or the environment, never from the command line, which everybody can read.
std::string ticket(const Options& options) {
  const std::string file = own(options, "ticket-file");
  if (file.empty()) {
    const char* given = std::getenv("LUMSAR_TICKET");
    return given != nullptr ? given : "";
  }
  std::ifstream stream(file);
  std::string line;
  if (!std::getline(stream, line)) throw std::runtime_error("cannot read a ticket from " + file);
  if (line.ends_with('\r')) line.pop_back();
  return line;
}

// The library would only say that TLS failed.
std::string certificates(const Options& options) {
  std::string file = own(options, "ca-file");
  if (!file.empty() && !std::ifstream(file)) {
    throw std::runtime_error("cannot read certificates from " + file);
  }
  return file;
}

lumsar::host::SpiceAddress address(const Options& options) {
  lumsar::host::SpiceAddress address;
  address.uri = options.vm;
  const lumsar::host::SpiceUri uri = lumsar::host::readSpiceUri(address.uri);
  if (!uri.valid) {
    throw lumsar::host::UsageError(
        "\"" + address.uri +
        "\" is no address: use spice://HOST:PORT, spice+tls://HOST:PORT or "
        "spice+unix:///PATH");
  }
  if (const std::string port = own(options, "port"); !port.empty()) address.port = port;
  address.ticket = ticket(options);
  address.caFile = certificates(options);
  address.hostSubject = own(options, "host-subject");
  if (!uri.tls && !(address.caFile.empty() && address.hostSubject.empty())) {
    throw lumsar::host::UsageError("\"" + address.uri +
                                   "\" is not encrypted: use spice+tls://HOST:PORT with --ca-file "
                                   "and --host-subject, or leave them out");
  }
  return address;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace lumsar::host;
  const ProgramText text{
      .name = "lumsar-spice",
      .synopsis = "[OPTION...] spice://HOST:PORT|spice+tls://HOST:PORT|spice+unix:///PATH",
      .addressHelp = "",
      .kind = Kind::Spice,
      .own = {{"port", "NAME", "the port channel's name (default org.lumsar.camera.0)"},
              {"ticket-file", "FILE", "the server's ticket (default: $LUMSAR_TICKET, if set)"},
              {"ca-file", "FILE", "certificates to trust for TLS, in PEM"},
              {"host-subject", "NAME", "whom the server's certificate names, if not HOST"}},
  };
  return runHostProgram(argc, argv, text,
                        [](asio::io_context& loop, SendQueue& queue, const Options& options) {
                          return std::make_unique<SpiceTransport>(loop, queue, address(options));
                        });
}
