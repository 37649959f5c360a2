#pragma once

#include "ApiRouter.h"
#include "TlsStream.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/parser.hpp>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

namespace keyferry::service {

class ComputerConnections;

// One accepted TCP connection: the TLS handshake, then HTTP/1.1 requests with keep-alive, each answered
// by the router, until the peer leaves, a limit is broken or a computer upgrades to its WebSocket (the
// stream then moves into a ComputerSocket). Request heads are limited to 8 KiB and bodies to 64 KiB; idle
// connections time out. Owned by its pending operations; borrows the router, core and registry, which
// outlive it. Network thread only.
class HttpSession : public std::enable_shared_from_this<HttpSession> {
public:
    static constexpr std::size_t maxBody = 64 * 1024;
    static constexpr std::size_t maxHeader = 8 * 1024;

    HttpSession(boost::asio::ip::tcp::socket&& socket, boost::asio::ssl::context& tls, ApiRouter& router,
                ServiceCore& core, ComputerConnections& connections);

    // Starts the handshake; `connection` is held for the connection's life (socket included), `handshake`
    // until the handshake ends.
    void start(std::shared_ptr<const void> connection, std::shared_ptr<const void> handshake);

private:
    void onHandshake(boost::beast::error_code error);
    void readRequest();
    void onRead(boost::beast::error_code error);
    bool isComputerUpgrade() const;
    void upgradeComputer();
    void respond(ApiRouter::Response response);
    void onWrite(boost::beast::error_code error, bool keepAlive);
    void drainThenShutdown(std::size_t drained);
    void shutdown();
    // Closes the connection when the current step takes longer than `limit`.
    void armDeadline(std::chrono::seconds limit);

    TlsStream stream_;
    boost::asio::steady_timer deadline_;
    ApiRouter& router_;
    ServiceCore& core_;
    ComputerConnections& connections_;
    std::string clientAddress_;
    boost::beast::flat_buffer buffer_;
    std::optional<boost::beast::http::request_parser<boost::beast::http::string_body>> parser_;
    std::optional<ApiRouter::Response> response_;
    bool drainAfterResponse_ = false;
    std::shared_ptr<const void> handshakeLease_;
};

} // namespace keyferry::service
