#include "ComputerConnections.h"

#include "ComputerSocket.h"

namespace keyferry::service {

ServiceEvents ComputerConnections::events() {
    ServiceEvents events;
    events.phonesChanged = [this](const std::string& computerId) {
        if (const auto socket = find(computerId)) {
            socket->sendPhonesChanged();
        }
    };
    events.textQueued = [this](const std::string& computerId) {
        if (const auto socket = find(computerId)) {
            socket->deliverNewTexts();
        }
    };
    events.computerRevoked = [this](const std::string& computerId) {
        if (const auto socket = find(computerId)) {
            sockets_.erase(computerId);
            socket->close(ComputerSocket::CloseReason::revoked);
        }
    };
    events.computerOnline = [this](const std::string& computerId) { return isOnline(computerId); };
    return events;
}

void ComputerConnections::add(const std::shared_ptr<ComputerSocket>& socket) {
    if (const auto previous = find(socket->computerId())) {
        previous->close(ComputerSocket::CloseReason::replaced);
    }
    sockets_[socket->computerId()] = socket;
}

void ComputerConnections::remove(const std::string& computerId, const ComputerSocket* socket) {
    const auto found = sockets_.find(computerId);
    if (found != sockets_.end()) {
        const auto current = found->second.lock();
        if (!current || current.get() == socket) {
            sockets_.erase(found);
        }
    }
}

bool ComputerConnections::isOnline(const std::string& computerId) const {
    return find(computerId) != nullptr;
}

void ComputerConnections::closeAll() {
    auto sockets = std::move(sockets_);
    sockets_.clear();
    for (const auto& [computerId, weak] : sockets) {
        if (const auto socket = weak.lock()) {
            socket->close(ComputerSocket::CloseReason::goingAway);
        }
    }
}

std::shared_ptr<ComputerSocket> ComputerConnections::find(const std::string& computerId) const {
    const auto found = sockets_.find(computerId);
    return found == sockets_.end() ? nullptr : found->second.lock();
}

} // namespace keyferry::service
