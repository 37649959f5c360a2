#include "ClientLimits.h"

namespace keyferry::service {
namespace {

// One place taken; its destruction gives it back, and a client with no place left is forgotten.
struct Place {
    std::unordered_map<std::string, std::size_t>& counts;
    std::string client;

    Place(std::unordered_map<std::string, std::size_t>& placeCounts, std::string placeClient)
        : counts(placeCounts), client(std::move(placeClient)) {}
    ~Place() {
        const auto found = counts.find(client);
        if (found != counts.end() && --found->second == 0) {
            counts.erase(found);
        }
    }
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;
};

} // namespace

ClientLimits::ClientLimits(std::size_t connectionsPerClient, std::size_t handshakesPerClient)
    : connectionsPerClient_(connectionsPerClient), handshakesPerClient_(handshakesPerClient) {}

ClientLimits::Lease ClientLimits::take(Counts& counts, std::size_t limit, const std::string& client) {
    const auto found = counts.find(client);
    if (found != counts.end() && found->second >= limit) {
        return nullptr;
    }
    if (limit == 0) {
        return nullptr;
    }
    ++counts[client];
    return std::make_shared<Place>(counts, client);
}

} // namespace keyferry::service
