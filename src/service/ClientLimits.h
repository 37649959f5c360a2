#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <unordered_map>

namespace keyferry::service {

// How many connections, and how many TLS handshakes in progress, each client (ClientAddress::limitKey)
// may have at once, so that one address cannot take every descriptor or keep the others waiting. A place
// is held by the lease it is granted and given back when the last copy of that lease is gone. The
// counter must outlive every lease; network thread only.
class ClientLimits {
public:
    static constexpr std::size_t defaultConnectionsPerClient = 256;
    static constexpr std::size_t defaultHandshakesPerClient = 16;

    using Lease = std::shared_ptr<const void>;

    ClientLimits(std::size_t connectionsPerClient, std::size_t handshakesPerClient);

    // A place for one more connection of `client`, or nothing when it holds all it may.
    Lease openConnection(const std::string& client) { return take(connections_, connectionsPerClient_, client); }
    // A place for one more handshake in progress of `client`, or nothing when it has all it may.
    Lease startHandshake(const std::string& client) { return take(handshakes_, handshakesPerClient_, client); }

    std::size_t connectionsPerClient() const { return connectionsPerClient_; }
    std::size_t handshakesPerClient() const { return handshakesPerClient_; }

private:
    using Counts = std::unordered_map<std::string, std::size_t>;
    Lease take(Counts& counts, std::size_t limit, const std::string& client);

    std::size_t connectionsPerClient_;
    std::size_t handshakesPerClient_;
    Counts connections_;
    Counts handshakes_;
};

} // namespace keyferry::service
