#include "Listener.h"

#include "HttpSession.h"

#include <chrono>

namespace keyferry::service {

Listener::Listener(boost::asio::io_context& io, boost::asio::ssl::context& tls,
                   const boost::asio::ip::tcp::endpoint& endpoint, ApiRouter& router, ServiceCore& core,
                   ComputerConnections& connections)
    : acceptor_(io), pause_(io), tls_(tls), router_(router), core_(core), connections_(connections) {
    acceptor_.open(endpoint.protocol());
    acceptor_.set_option(boost::asio::socket_base::reuse_address(true));
    if (endpoint.address().is_v6()) {
        acceptor_.set_option(boost::asio::ip::v6_only(false));
    }
    acceptor_.bind(endpoint);
    acceptor_.listen(boost::asio::socket_base::max_listen_connections);
}

void Listener::start() { acceptNext(); }

void Listener::stop() {
    boost::system::error_code ignored;
    acceptor_.close(ignored);
    pause_.cancel();
}

void Listener::acceptNext() {
    acceptor_.async_accept([self = shared_from_this()](boost::system::error_code error, boost::asio::ip::tcp::socket socket) {
        self->onAccept(error, std::move(socket));
    });
}

void Listener::onAccept(boost::system::error_code error, boost::asio::ip::tcp::socket socket) {
    if (!acceptor_.is_open() || error == boost::asio::error::operation_aborted) {
        return;
    }
    if (error) {
        pause_.expires_after(std::chrono::milliseconds(100));
        pause_.async_wait([self = shared_from_this()](boost::system::error_code waitError) {
            if (!waitError) {
                self->acceptNext();
            }
        });
        return;
    }
    boost::system::error_code ignored;
    socket.set_option(boost::asio::ip::tcp::no_delay(true), ignored);
    std::make_shared<HttpSession>(std::move(socket), tls_, router_, core_, connections_)->start();
    acceptNext();
}

} // namespace keyferry::service
