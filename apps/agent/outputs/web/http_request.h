// Reading one HTTP request.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace lumsar::agent {

struct HttpRequest {
  std::string method;
  std::string path;                                 // without the query
  std::string query;                                // without the '?'
  std::multimap<std::string, std::string> headers;  // names in lower case
};

// Nothing if this is not a request.
std::optional<HttpRequest> parseRequest(std::string_view head);

// The head of the request, including its empty line; empty if it does not arrive within a few
// seconds or is too long.
std::string readRequestHead(int socket);

// Whether the request is the page's own or a person's. Any web site can make a browser fetch from
// the loopback interface; it must neither see a camera nor switch one on.
bool isFromHere(const HttpRequest& request);

}  // namespace lumsar::agent
