// The command line of lumsar-rdp: where the server is, who logs on, and whom to trust.
#pragma once

#include <string>

#include "app/host_options.h"
#include "rdp/rdp_client.h"

namespace lumsar::host {

struct RdpOptions {
  std::string credentialsFile;
  std::string acceptedCertificate;
  std::string serverName;
  bool ignoreCertificate = false;

  void addTo(base::CommandLine& line);
};

// "HOST", "HOST:PORT", "[IPV6]:PORT" with or without "rdp://", or "unix:PATH". Throws UsageError.
void parseRdpAddress(const std::string& address, RdpTarget& target);

// A SHA-256 fingerprint in any usual spelling as "ab:cd:...". Throws UsageError.
std::string parseFingerprint(const std::string& text);

// Throws UsageError or Failure.
RdpTarget rdpTarget(const Options& options, const RdpOptions& own);

}  // namespace lumsar::host
