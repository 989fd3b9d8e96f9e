// Whom lumsar-rdp connects to, from its command line, files and environment. Called once at start.
#ifndef LUMSAR_HOST_APP_RDP_ADDRESS_H
#define LUMSAR_HOST_APP_RDP_ADDRESS_H

#include <string>

#include "app/host_options.h"
#include "rdp/rdp_client.h"

namespace lumsar::host {

// HOST, HOST:PORT, [IPV6]:PORT, each with or without "rdp://", or unix:PATH. Throws UsageError.
void parseRdpAddress(const std::string& address, RdpTarget& target);

// "AB:CD:..", "abcd..", with or without "sha256:", as the RDP library wants it. Throws UsageError.
std::string parseFingerprint(const std::string& text);

// All that the options say. Throws UsageError, or std::runtime_error for a file that is no use.
RdpTarget rdpTarget(const Options& options);

// The program's own options, for ProgramText.
std::vector<OwnOption> rdpOptions();

}  // namespace lumsar::host

#endif
