#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ip/v6_only.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/steady_timer.hpp>

#include <memory>

namespace keyferry::service {

class ApiRouter;
class ComputerConnections;
class ServiceCore;

// Accepts TCP connections on one endpoint and starts an HttpSession for each. When the process runs out
// of file descriptors it pauses briefly instead of spinning. Owned by the server; borrows the rest, which
// outlives it. Network thread only; binding failures throw from the constructor.
class Listener : public std::enable_shared_from_this<Listener> {
public:
    Listener(boost::asio::io_context& io, boost::asio::ssl::context& tls, const boost::asio::ip::tcp::endpoint& endpoint,
             ApiRouter& router, ServiceCore& core, ComputerConnections& connections);

    void start();
    void stop();
    unsigned short port() const { return acceptor_.local_endpoint().port(); }

private:
    void acceptNext();
    void onAccept(boost::system::error_code error, boost::asio::ip::tcp::socket socket);

    boost::asio::ip::tcp::acceptor acceptor_;
    boost::asio::steady_timer pause_;
    boost::asio::ssl::context& tls_;
    ApiRouter& router_;
    ServiceCore& core_;
    ComputerConnections& connections_;
};

} // namespace keyferry::service
