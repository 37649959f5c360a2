#pragma once

#include "ServiceEvents.h"

#include <cstddef>
#include <memory>
#include <string>
#include <unordered_map>

namespace keyferry::service {

class ComputerSocket;

// The open WebSocket of each computer: at most one per computer, the newest replacing (and closing) an
// older one. Holds the sockets weakly: a socket lives as long as its own pending operations. It turns the
// core's events into frames and closes. Network thread only.
class ComputerConnections {
public:
    // The events the core reports through; they refer to this object, which must outlive the core.
    ServiceEvents events();

    void add(const std::shared_ptr<ComputerSocket>& socket);
    // Forgets `socket` if it is still the computer's current one.
    void remove(const std::string& computerId, const ComputerSocket* socket);
    bool isOnline(const std::string& computerId) const;
    std::size_t count() const { return sockets_.size(); }
    // Closes every socket (going away); used when the service stops.
    void closeAll();

private:
    std::shared_ptr<ComputerSocket> find(const std::string& computerId) const;

    std::unordered_map<std::string, std::weak_ptr<ComputerSocket>> sockets_;
};

} // namespace keyferry::service
