// DirectNetworks: where the service may connect to by itself, for "sharetcp", from --direct-to.
#pragma once

#include <asio/ip/address.hpp>
#include <asio/ip/network_v4.hpp>
#include <asio/ip/network_v6.hpp>
#include <string>
#include <variant>
#include <vector>

namespace lumsar::service {

class DirectNetworks {
 public:
  // "10.0.0.0/8", "fd00::/8" or one address. Throws std::invalid_argument with a text for the user.
  void add(const std::string& network);
  // Without any network every address of one machine is allowed.
  bool allow(const asio::ip::address& address) const;

 private:
  std::vector<std::variant<asio::ip::network_v4, asio::ip::network_v6>> m_networks;
};

}  // namespace lumsar::service
