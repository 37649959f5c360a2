#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ip/v6_only.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/steady_timer.hpp>

#include "ServiceLog.h"

#include <memory>
#include <string>

namespace keyferry::service {

class ApiRouter;
class ClientLimits;
class ComputerConnections;
class ServiceCore;

// Accepts TCP connections on one endpoint and starts an HttpSession for each, within each client's share
// of connections and handshakes (ClientLimits); a connection beyond it is closed at once. When the process
// runs out of file descriptors it pauses briefly instead of spinning. Owned by the server; borrows the rest, which
// outlives it. Network thread only; binding failures throw from the constructor.
class Listener : public std::enable_shared_from_this<Listener> {
public:
    Listener(boost::asio::io_context& io, boost::asio::ssl::context& tls,
             const boost::asio::ip::tcp::endpoint& endpoint, ApiRouter& router, ServiceCore& core,
             ComputerConnections& connections, ClientLimits& limits);

    void start();
    void stop();
    unsigned short port() const { return acceptor_.local_endpoint().port(); }

private:
    void acceptNext();
    void onAccept(boost::system::error_code error, boost::asio::ip::tcp::socket socket);
    void pauseAccepting(const boost::system::error_code& error);
    void refuse(boost::asio::ip::tcp::socket& socket, const std::string& client, bool handshakesFull);

    boost::asio::ip::tcp::acceptor acceptor_;
    boost::asio::steady_timer pause_;
    boost::asio::ssl::context& tls_;
    ApiRouter& router_;
    ServiceCore& core_;
    ComputerConnections& connections_;
    ClientLimits& limits_;
    ServiceLog::Throttle logThrottle_;
};

} // namespace keyferry::service
