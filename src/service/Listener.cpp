#include "Listener.h"

#include "ClientAddress.h"
#include "ClientLimits.h"
#include "HttpSession.h"

#include <chrono>

namespace keyferry::service {
namespace {

std::int64_t steadyMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

} // namespace

Listener::Listener(boost::asio::io_context& io, boost::asio::ssl::context& tls,
                   const boost::asio::ip::tcp::endpoint& endpoint, ApiRouter& router, ServiceCore& core,
                   ComputerConnections& connections, ClientLimits& limits)
    : acceptor_(io), pause_(io), tls_(tls), router_(router), core_(core), connections_(connections), limits_(limits) {
    acceptor_.open(endpoint.protocol());
    acceptor_.set_option(boost::asio::socket_base::reuse_address(true));
    if (endpoint.address().is_v6()) {
        acceptor_.set_option(boost::asio::ip::v6_only(false));
    }
    acceptor_.bind(endpoint);
    acceptor_.listen(boost::asio::socket_base::max_listen_connections);
}

void Listener::start() {
    acceptNext();
}

void Listener::stop() {
    boost::system::error_code ignored;
    acceptor_.close(ignored);
    pause_.cancel();
}

void Listener::acceptNext() {
    acceptor_.async_accept(
        [self = shared_from_this()](boost::system::error_code error, boost::asio::ip::tcp::socket socket) {
            self->onAccept(error, std::move(socket));
        });
}

void Listener::onAccept(boost::system::error_code error, boost::asio::ip::tcp::socket socket) {
    if (!acceptor_.is_open() || error == boost::asio::error::operation_aborted) {
        return;
    }
    if (error) {
        pauseAccepting(error);
        return;
    }
    const std::string client = ClientAddress::limitKey(ClientAddress::ofPeer(socket));
    auto connection = limits_.openConnection(client);
    auto handshake = connection ? limits_.startHandshake(client) : nullptr;
    if (!handshake) {
        refuse(socket, client, connection != nullptr);
        acceptNext();
        return;
    }
    boost::system::error_code ignored;
    socket.set_option(boost::asio::ip::tcp::no_delay(true), ignored);
    std::make_shared<HttpSession>(std::move(socket), tls_, router_, core_, connections_)
        ->start(std::move(connection), std::move(handshake));
    acceptNext();
}

void Listener::pauseAccepting(const boost::system::error_code& error) {
    if (logThrottle_.allows("accept", steadyMs())) {
        ServiceLog::error("cannot accept connections (" + error.message() + "); trying again every 100 ms");
    }
    pause_.expires_after(std::chrono::milliseconds(100));
    pause_.async_wait([self = shared_from_this()](boost::system::error_code waitError) {
        if (!waitError) {
            self->acceptNext();
        }
    });
}

void Listener::refuse(boost::asio::ip::tcp::socket& socket, const std::string& client, bool handshakesFull) {
    boost::system::error_code ignored;
    socket.close(ignored);
    if (logThrottle_.allows(client, steadyMs())) {
        ServiceLog::warning("refused connections from " + client + ": it has " +
                            (handshakesFull ? std::to_string(limits_.handshakesPerClient()) + " handshakes in progress"
                                            : std::to_string(limits_.connectionsPerClient()) + " connections open") +
                            ", its limit (logged once a minute)");
    }
}

} // namespace keyferry::service
