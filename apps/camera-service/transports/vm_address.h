// VmAddress: where the command "sharetcp" says that a VM is.
#pragma once

#include <asio/ip/address.hpp>
#include <cstdint>
#include <optional>
#include <string>

namespace lumsar::service {

struct VmAddress {
  std::string host;
  std::uint16_t port = 0;
  std::optional<asio::ip::address> ip;  // without it, `host` is a name that is still to be resolved

  std::string text() const;  // "tcp 10.0.0.7:5000", "tcp [::1]:5000", "tcp vm.example:5000"
};

// Nothing when `host` is neither an IP address nor a name, or `port` no number from 1 to 65535.
std::optional<VmAddress> parseVmAddress(const std::string& host, const std::string& port);

}  // namespace lumsar::service
