#include "app/rdp_options.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

#include "app/credentials.h"
#include "base/net/address.h"

namespace lumsar::host {

namespace {

constexpr std::size_t kFingerprintDigits = 64;

[[noreturn]] void refuse(const std::string& address) {
  throw base::UsageError(
      base::text("\"{}\" is not a valid address; expected HOST, HOST:PORT or unix:PATH", address));
}

// DOMAIN\USER, or USER alone.
void setUser(const std::string& text, RdpTarget& target) {
  const auto slash = text.find('\\');
  target.user = slash == std::string::npos ? text : text.substr(slash + 1);
  if (slash != std::string::npos) target.domain = text.substr(0, slash);
}

void readCredentials(const std::string& file, RdpTarget& target) {
  const auto lines = readLines(file, 2, "credentials",
                               ": it should hold the user's name in its first line, as USER or "
                               "DOMAIN\\USER, and the password in its second");
  setUser(lines[0], target);
  target.password = lines[1];
}

void readCredentialsFromEnvironment(RdpTarget& target) {
  setUser(environment("LUMSAR_USER"), target);
  target.password = environment("LUMSAR_PASSWORD");
  if (!target.user.empty() && target.password.empty()) {
    throw base::UsageError("LUMSAR_USER is set, and LUMSAR_PASSWORD is not: set both or neither");
  }
}

}  // namespace

void parseRdpAddress(const std::string& address, RdpTarget& target) {
  if (address.starts_with("unix:")) {
    if (address.size() == 5) refuse(address);
    target.host = std::filesystem::absolute(address.substr(5)).string();
    return base::checkSocketPath(target.host);
  }
  const auto parsed =
      base::splitHostAndPort(address.starts_with("rdp://") ? address.substr(6) : address);
  if (!parsed || parsed->port == 0 || parsed->host.empty() ||
      parsed->host.find_first_of("/| \t") != std::string::npos) {
    refuse(address);
  }
  target.host = parsed->host;
  target.port = parsed->port.value_or(target.port);
}

std::string parseFingerprint(const std::string& text) {
  std::string digits;
  for (const char c : text.starts_with("sha256:") ? text.substr(7) : text) {
    if (c == ':' || c == ' ') continue;
    digits += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  if (digits.size() != kFingerprintDigits ||
      digits.find_first_not_of("0123456789abcdef") != std::string::npos) {
    throw base::UsageError(base::text(
        "\"{}\" is not a valid SHA-256 fingerprint; expected 64 hexadecimal digits, such as "
        "\"openssl x509 -noout -fingerprint -sha256 -in CERTIFICATE\" prints",
        text));
  }
  std::string result;
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    if (i > 0) result += ':';
    result += digits.substr(i, 2);
  }
  return result;
}

void RdpOptions::addTo(base::CommandLine& line) {
  line.option("--credentials FILE", credentialsFile,
              "user and password, a line each (or $LUMSAR_USER, $LUMSAR_PASSWORD)");
  line.option("--accept-certificate SHA256", acceptedCertificate,
              "trust the server's certificate with this fingerprint");
  line.option("--server-name NAME", serverName,
              "the server's name in its certificate, if it is not HOST");
  line.option("--ignore-certificate", ignoreCertificate, "for tests only: trust any server");
}

RdpTarget rdpTarget(const Options& options, const RdpOptions& own) {
  RdpTarget target;
  parseRdpAddress(options.vm, target);
  target.serverName = own.serverName;
  if (!own.acceptedCertificate.empty()) {
    target.acceptedFingerprint = parseFingerprint(own.acceptedCertificate);
  }
  target.ignoreCertificate = own.ignoreCertificate;
  target.verbose = options.verbose;
  if (own.credentialsFile.empty()) {
    readCredentialsFromEnvironment(target);
  } else {
    readCredentials(own.credentialsFile, target);
  }
  return target;
}

}  // namespace lumsar::host
