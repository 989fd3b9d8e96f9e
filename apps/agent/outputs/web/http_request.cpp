#include "outputs/web/http_request.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <chrono>

#include "base/deadline.h"
#include "base/net/address.h"

namespace lumsar::agent {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t kMaxHead = 16U << 10U;
constexpr auto kTimeout = 5s;

std::string lower(std::string_view text) {
  std::string result(text);
  for (char& c : result) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return result;
}

std::string_view trim(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

// The next line without its end; both are removed from `rest`.
std::string_view takeLine(std::string_view& rest) {
  const std::size_t end = std::min(rest.find("\r\n"), rest.size());
  const std::string_view line = rest.substr(0, end);
  rest.remove_prefix(std::min(end + 2, rest.size()));
  return line;
}

// The port may be another one than the server's: an SSH tunnel has its own.
bool isThisMachine(std::string_view host) {
  const auto parts = base::splitHostAndPort(host);
  if (!parts) return false;
  if (host.starts_with('[')) return parts->host == "::1";
  return parts->host == "localhost" || parts->host == "127.0.0.1";
}

}  // namespace

std::optional<HttpRequest> parseRequest(std::string_view head) {
  const std::string_view line = takeLine(head);
  const std::size_t first = line.find(' ');
  const std::size_t second = line.rfind(' ');
  if (first == std::string_view::npos || second <= first) return std::nullopt;
  const std::string_view target = line.substr(first + 1, second - first - 1);
  if (!line.substr(second + 1).starts_with("HTTP/1.") || !target.starts_with('/')) {
    return std::nullopt;
  }
  const std::size_t pathEnd = std::min(target.find('?'), target.size());
  HttpRequest request{std::string(line.substr(0, first)),
                      std::string(target.substr(0, pathEnd)),
                      std::string(target.substr(std::min(pathEnd + 1, target.size()))),
                      {}};
  while (!head.empty()) {
    const std::string_view header = takeLine(head);
    if (header.empty()) break;
    const std::size_t colon = header.find(':');
    if (header.substr(0, colon).find_first_of(" \t") != std::string_view::npos) return std::nullopt;
    if (colon == std::string_view::npos) return std::nullopt;
    request.headers.emplace(lower(header.substr(0, colon)), trim(header.substr(colon + 1)));
  }
  return request;
}

std::string readRequestHead(int socket) {
  std::string head;
  const auto deadline = std::chrono::steady_clock::now() + kTimeout;
  while (head.size() < kMaxHead) {
    pollfd readable{socket, POLLIN, 0};
    if (poll(&readable, 1, base::pollTimeout(deadline)) <= 0) return {};
    std::array<char, 4096> fragment;
    const ssize_t got = recv(socket, fragment.data(), fragment.size(), 0);
    if (got <= 0) return {};
    head.append(fragment.data(), static_cast<std::size_t>(got));
    if (const std::size_t end = head.find("\r\n\r\n"); end != std::string::npos) {
      return head.substr(0, end + 4);
    }
  }
  return {};
}

bool isFromHere(const HttpRequest& request) {
  const auto everyIs = [&request](const char* name, auto good) {
    const auto [first, last] = request.headers.equal_range(name);
    return std::all_of(first, last, [&](const auto& header) { return good(lower(header.second)); });
  };
  if (request.headers.count("host") != 1) return false;
  const std::string host = lower(request.headers.find("host")->second);
  const auto isSameSite = [](const std::string& site) {
    return site == "same-origin" || site == "none";
  };
  const auto isSameOrigin = [&host](const std::string& origin) {
    return origin == "http://" + host;
  };
  return isThisMachine(host) && everyIs("sec-fetch-site", isSameSite) &&
         everyIs("origin", isSameOrigin);
}

}  // namespace lumsar::agent
