#pragma once

#include <boost/asio/ip/tcp.hpp>

#include <string>

namespace keyferry::service::ClientAddress {

// The key under which per-client limits count a peer: an IPv4 address as it is, an IPv6 address by its
// /64 (a home or a phone network is given a whole /64, so one client can use any address in it), an
// IPv4-mapped IPv6 address as its IPv4 address. Text that is not an address is its own key.
std::string limitKey(const std::string& address);

// The peer's address as text, or "unknown" when the socket has none (it was closed already).
std::string ofPeer(const boost::asio::ip::tcp::socket& socket);

} // namespace keyferry::service::ClientAddress
