// The secret in the address of the live page: whoever has the address may watch.
#pragma once

#include <string>

#include "outputs/web/http_request.h"

namespace lumsar::agent {

// 128 random bits, fit for an address.
std::string newPageKey();

// Whether the request's query has "key=" with this key.
bool hasKey(const HttpRequest& request, std::string_view key);

}  // namespace lumsar::agent
