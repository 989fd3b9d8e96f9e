// The head of an HTTP request from any program on the machine: read or refused, never more.
#include "outputs/web/http_request.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string_view head(reinterpret_cast<const char*>(data), size);
  const auto request = lumsar::agent::parseRequest(head);
  if (!request) return 0;
  if (request->path.find('?') != std::string::npos) __builtin_trap();
  lumsar::agent::isFromHere(*request);
  return 0;
}
