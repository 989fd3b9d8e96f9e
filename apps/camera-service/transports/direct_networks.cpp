#include "transports/direct_networks.h"

#include <algorithm>
#include <asio/ip/address_v4.hpp>
#include <asio/ip/address_v6.hpp>
#include <stdexcept>

namespace lumsar::service {
namespace {

namespace ip = asio::ip;

bool holds(const ip::network_v4& network, const ip::address& address) {
  return address.is_v4() &&
         ip::network_v4(address.to_v4(), network.prefix_length()).canonical() == network;
}

bool holds(const ip::network_v6& network, const ip::address& address) {
  if (!address.is_v6()) return false;
  // The interface is no part of the network.
  const ip::address_v6 onAny(address.to_v6().to_bytes());
  return ip::network_v6(onAny, network.prefix_length()).canonical() == network;
}

// The same machine by another name would pass a rule for the other family.
ip::address plain(const ip::address& address) {
  const bool mapped = address.is_v6() && address.to_v6().is_v4_mapped();
  return mapped ? ip::make_address_v4(ip::v4_mapped, address.to_v6()) : address;
}

bool isOneMachines(const ip::address& address) {
  return !address.is_unspecified() && !address.is_multicast() &&
         address != ip::address_v4::broadcast();
}

}  // namespace

void DirectNetworks::add(const std::string& network) {
  asio::error_code error;
  const bool isAddress = network.find('/') == std::string::npos;
  const auto four = ip::make_network_v4(isAddress ? network + "/32" : network, error);
  if (!error) return void(m_networks.emplace_back(four.canonical()));
  const auto six = ip::make_network_v6(isAddress ? network + "/128" : network, error);
  if (!error) return void(m_networks.emplace_back(six.canonical()));
  throw std::invalid_argument("expected a network such as 10.0.0.0/8 or fd00::/8, or an address");
}

bool DirectNetworks::allow(const ip::address& address) const {
  const ip::address one = plain(address);
  if (!isOneMachines(one)) return false;
  const auto holdsIt = [&one](const auto& network) { return holds(network, one); };
  return m_networks.empty() ||
         std::ranges::any_of(m_networks, [&](const auto& any) { return std::visit(holdsIt, any); });
}

}  // namespace lumsar::service
