// A plain browser: requests to the page's server on 127.0.0.1.
#pragma once

#include <string>

#include "support/raw_peer.h"

namespace lumsar::test {

inline RawPeer connectTo(std::uint16_t port) {
  return RawPeer("tcp:127.0.0.1:" + std::to_string(port));
}

// The answer up to its end, or `enough` bytes of it.
inline std::string httpAsk(std::uint16_t port, const std::string& request,
                           std::size_t enough = std::size_t{1} << 24U) {
  const RawPeer peer = connectTo(port);
  return peer.send(bytesOf(request)) ? textOf(peer.read(enough)) : std::string();
}

// The key in the address of each page that a test opens.
inline constexpr char kPageKey[] = "0123456789abcdef";

inline std::string requestFor(const std::string& path, const std::string& query) {
  return "GET " + path + query + " HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";
}
inline std::string httpGet(std::uint16_t port, const std::string& path,
                           std::size_t enough = std::size_t{1} << 24U) {
  return httpAsk(port, requestFor(path, std::string("?key=") + kPageKey), enough);
}

inline std::string bodyOf(const std::string& answer) {
  const std::size_t end = answer.find("\r\n\r\n");
  return end == std::string::npos ? std::string() : answer.substr(end + 4);
}

}  // namespace lumsar::test
