// lumsar-spice: a headless SPICE client that has nothing but the camera channel.
#include <glib.h>

#include <cstdlib>
#include <exception>

#include "app/credentials.h"
#include "app/host_app.h"
#include "base/errors.h"
#include "base/text/format.h"
#include "session/report.h"
#include "spice/spice_transport.h"

namespace {

using namespace lumsar::host;
namespace base = lumsar::base;

struct SpiceOptions {
  SpiceAddress address;
  std::string ticketFile;

  void addTo(base::CommandLine& line) {
    line.option("--port NAME", address.port,
                base::text("the port channel's name (default {})", address.port));
    line.option("--ticket-file FILE", ticketFile,
                "the server's ticket (default: $LUMSAR_TICKET, if set)");
    line.option("--ca-file FILE", address.caFile, "certificates to trust for TLS, in PEM");
    line.option("--host-subject NAME", address.hostSubject,
                "whom the server's certificate names, if not HOST");
  }
};

std::string ticket(const std::string& file) {
  return file.empty() ? environment("LUMSAR_TICKET") : readLines(file, 1, "a ticket").front();
}

SpiceAddress complete(SpiceOptions options, const std::string& uri) {
  SpiceAddress& address = options.address;
  address.uri = uri;
  const SpiceUri read = readSpiceUri(uri);
  if (!read.valid) {
    throw base::UsageError(
        base::text("\"{}\" is not a valid address; expected spice://HOST:PORT, "
                   "spice+tls://HOST:PORT or spice+unix:///PATH",
                   uri));
  }
  address.ticket = ticket(options.ticketFile);
  // The library would only say that TLS failed.
  if (!address.caFile.empty()) readLines(address.caFile, 1, "certificates");
  if (!read.tls && !(address.caFile.empty() && address.hostSubject.empty())) {
    throw base::UsageError(
        base::text("\"{}\" is not encrypted: use spice+tls://HOST:PORT with --ca-file and "
                   "--host-subject, or leave them out",
                   uri));
  }
  return address;
}

// GLib ends the program after a fatal line, which must not be one of those that are left out.
void logOfGlib(const gchar* domain, GLogLevelFlags level, const gchar* message, gpointer) {
  constexpr int kShown = G_LOG_LEVEL_ERROR | G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_WARNING;
  if ((level & G_LOG_FLAG_FATAL) != 0) {
    return g_log_default_handler(domain, level, message, nullptr);
  }
  if ((level & kShown) == 0) return;
  try {
    logOfLibrary(domain != nullptr ? domain : "GLib", message);
  } catch (const std::exception&) {
    g_log_default_handler(domain, level, message, nullptr);
  }
}

}  // namespace

int main(int argc, char** argv) {
  g_log_set_default_handler(logOfGlib, nullptr);
  SpiceOptions own;
  return runHostProgram(
      argc, argv,
      {.program = "lumsar-spice",
       .usage = "[OPTION...] spice://HOST:PORT|spice+tls://HOST:PORT|spice+unix:///PATH",
       .example = "lumsar-spice spice://127.0.0.1:5900 --exec 'share 0' --duration 8h",
       .protocol = Protocol::Spice,
       .addOwn = [&own](auto& line) { own.addTo(line); },
       .environment = {{"LUMSAR_TICKET", "the server's ticket, unless --ticket-file is given"}}},
      [&own](asio::io_context&, SendQueue& queue, Inbox& inbox, const Options& options) {
        return std::make_unique<SpiceTransport>(queue, inbox, complete(own, options.vm));
      });
}
