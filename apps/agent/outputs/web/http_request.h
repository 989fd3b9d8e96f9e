// Reading one HTTP request. Called by HttpServer on a connection's thread.
#ifndef LUMSAR_AGENT_OUTPUTS_WEB_HTTP_REQUEST_H
#define LUMSAR_AGENT_OUTPUTS_WEB_HTTP_REQUEST_H

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace lumsar::agent {

struct HttpRequest {
  std::string method;
  std::string path;                            // without a query
  std::map<std::string, std::string> headers;  // names in lower case
};

// Nothing if this is no request.
std::optional<HttpRequest> parseRequest(std::string_view head);

// The head of the request, up to and with its empty line; empty if none comes within a few seconds
// or it is too long.
std::string readRequestHead(int socket);

// Whether the page itself or a person asks. Any web site may make a browser fetch things from the
// loopback interface; it must neither see a camera nor switch one on.
bool isFromHere(const HttpRequest& request);

}  // namespace lumsar::agent

#endif
