#include "app/rdp_address.h"

#include <sys/un.h>

#include <cctype>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace lumsar::host {

namespace {

constexpr std::size_t kFingerprintDigits = 64;

[[noreturn]] void refuse(const std::string& address) {
  throw UsageError("\"" + address + "\" is no address: use HOST, HOST:PORT or unix:PATH");
}

std::uint16_t parsePort(const std::string& text, const std::string& address) {
  std::uint16_t port = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
  if (error != std::errc() || end != text.data() + text.size() || port == 0) refuse(address);
  return port;
}

void parseSocketPath(const std::string& path, const std::string& address, RdpTarget& target) {
  if (path.empty()) refuse(address);
  target.host = std::filesystem::absolute(path).string();
  if (target.host.size() >= sizeof(sockaddr_un{}.sun_path)) {
    throw UsageError("socket path too long, at most 107 bytes: " + target.host);
  }
}

const std::string* given(const Options& options, const char* name) {
  const auto found = options.own.find(name);
  return found == options.own.end() ? nullptr : &found->second;
}

std::string environment(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

// DOMAIN\USER, or USER alone.
void setUser(const std::string& text, RdpTarget& target) {
  const auto slash = text.find('\\');
  target.user = slash == std::string::npos ? text : text.substr(slash + 1);
  if (slash != std::string::npos) target.domain = text.substr(0, slash);
}

// A line of a file that may come from another system.
bool readLine(std::istream& stream, std::string& line) {
  if (!std::getline(stream, line)) return false;
  if (line.ends_with('\r')) line.pop_back();
  return !line.empty();
}

void readCredentials(const std::string& file, RdpTarget& target) {
  std::ifstream stream(file);
  std::string user;
  if (!readLine(stream, user) || !readLine(stream, target.password)) {
    throw std::runtime_error("cannot read credentials from " + file +
                             ": it should hold the user's name in its first line, as USER or "
                             "DOMAIN\\USER, and the password in its second");
  }
  setUser(user, target);
}

}  // namespace

void parseRdpAddress(const std::string& address, RdpTarget& target) {
  if (address.starts_with("unix:")) return parseSocketPath(address.substr(5), address, target);
  std::string rest = address.starts_with("rdp://") ? address.substr(6) : address;
  std::string port;
  if (rest.starts_with('[')) {
    const auto end = rest.find(']');
    if (end == std::string::npos) refuse(address);
    target.host = rest.substr(1, end - 1);
    port = rest.substr(end + 1);
    if (!port.empty() && port.front() != ':') refuse(address);
  } else {
    const auto colon = rest.find(':');
    target.host = rest.substr(0, colon);
    if (colon != std::string::npos) port = rest.substr(colon);
  }
  if (target.host.empty() || target.host.find_first_of("/| \t") != std::string::npos) {
    refuse(address);
  }
  if (!port.empty()) target.port = parsePort(port.substr(1), address);
}

std::string parseFingerprint(const std::string& text) {
  std::string digits;
  for (const char c : text.starts_with("sha256:") ? text.substr(7) : text) {
    if (c == ':' || c == ' ') continue;
    digits += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  if (digits.size() != kFingerprintDigits ||
      digits.find_first_not_of("0123456789abcdef") != std::string::npos) {
    throw UsageError("\"" + text +
                     "\" is no SHA-256 fingerprint: 64 hexadecimal digits, such as \"openssl x509 "
                     "-noout -fingerprint -sha256 -in CERTIFICATE\" prints");
  }
  std::string result;
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    if (i > 0) result += ':';
    result += digits.substr(i, 2);
  }
  return result;
}

RdpTarget rdpTarget(const Options& options) {
  RdpTarget target;
  parseRdpAddress(options.vm, target);
  if (const auto* name = given(options, "server-name")) target.serverName = *name;
  if (const auto* text = given(options, "accept-certificate")) {
    target.acceptedFingerprint = parseFingerprint(*text);
  }
  target.ignoreCertificate = given(options, "ignore-certificate") != nullptr;
  target.verbose = options.verbose;
  if (const auto* file = given(options, "credentials")) {
    readCredentials(*file, target);
  } else {
    setUser(environment("LUMSAR_USER"), target);
    target.password = environment("LUMSAR_PASSWORD");
    if (!target.user.empty() && target.password.empty()) {
      throw UsageError("LUMSAR_USER is set, and LUMSAR_PASSWORD is not: set both or neither");
    }
  }
  return target;
}

std::vector<OwnOption> rdpOptions() {
  return {
      {"credentials", "FILE", "user and password, a line each (or $LUMSAR_USER, $LUMSAR_PASSWORD)"},
      {"accept-certificate", "SHA256", "trust the server's certificate with this fingerprint"},
      {"server-name", "NAME", "the server's name in its certificate, if it is not HOST"},
      {"ignore-certificate", nullptr, "for tests only: trust any server"},
  };
}

}  // namespace lumsar::host
