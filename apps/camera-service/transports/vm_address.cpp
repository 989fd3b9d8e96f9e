#include "transports/vm_address.h"

#include <algorithm>
#include <string_view>

#include "base/net/address.h"
#include "base/text/format.h"

namespace lumsar::service {
namespace {

constexpr std::size_t kLongestName = 253;
constexpr std::string_view kLetters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";

// Without a letter it is a mistyped address, which resolvers would complete to another one.
bool isName(std::string_view host) {
  const auto isPart = [](char c) {
    return kLetters.find(c) != std::string_view::npos || (c >= '0' && c <= '9') || c == '-' ||
           c == '.' || c == '_';
  };
  return host.size() <= kLongestName && std::ranges::all_of(host, isPart) &&
         host.find_first_of(kLetters) != std::string_view::npos && host.front() != '-';
}

}  // namespace

std::string VmAddress::text() const {
  if (ip && ip->is_v6()) return base::text("tcp [{}]:{}", host, port);
  return base::text("tcp {}:{}", host, port);
}

std::optional<VmAddress> parseVmAddress(const std::string& host, const std::string& port) {
  const std::uint16_t number = base::parsePort(port).value_or(0);
  if (number == 0) return std::nullopt;
  asio::error_code error;
  const auto ip = asio::ip::make_address(host, error);
  if (!error) return VmAddress{ip.to_string(), number, ip};
  if (!isName(host)) return std::nullopt;
  return VmAddress{host, number, std::nullopt};
}

}  // namespace lumsar::service
