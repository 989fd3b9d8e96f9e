#include "outputs/web/page_key.h"

#include <algorithm>
#include <random>

#include "base/text/format.h"

namespace lumsar::agent {
namespace {

// The time that it takes tells nothing about the key.
bool isSame(std::string_view one, std::string_view other) {
  if (one.size() != other.size()) return false;
  int difference = 0;
  for (std::size_t i = 0; i < one.size(); ++i) difference |= one[i] ^ other[i];
  return difference == 0;
}

}  // namespace

std::string newPageKey() {
  std::random_device source;
  return base::text("{:08x}{:08x}{:08x}{:08x}", source(), source(), source(), source());
}

bool hasKey(const HttpRequest& request, std::string_view key) {
  constexpr std::string_view kName = "key=";
  for (std::string_view rest = request.query; !rest.empty();) {
    const std::string_view field = rest.substr(0, rest.find('&'));
    if (field.starts_with(kName) && isSame(field.substr(kName.size()), key)) return true;
    rest.remove_prefix(std::min(field.size() + 1, rest.size()));
  }
  return false;
}

}  // namespace lumsar::agent
