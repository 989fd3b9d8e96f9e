// The head of an HTTP request from any program on the machine: read or refused, never more.
#include "http_request.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string_view head(reinterpret_cast<const char*>(data), size);
  const auto request = lumsar::vm::parseRequest(head);
  if (!request) return 0;
  if (request->path.find('?') != std::string::npos) __builtin_trap();
  lumsar::vm::isFromHere(*request);
  return 0;
}
