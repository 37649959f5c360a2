#include "HttpSession.h"

#include "ApiPaths.h"
#include "ClientAddress.h"
#include "ComputerConnections.h"
#include "ComputerSocket.h"

#include <boost/beast/core/buffers_to_string.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/write.hpp>
#include <boost/beast/websocket/rfc6455.hpp>

#include <chrono>

namespace keyferry::service {
namespace {

namespace beast = boost::beast;
namespace http = beast::http;

constexpr auto handshakeTimeout = std::chrono::seconds(15);
constexpr auto requestTimeout = std::chrono::seconds(30);

} // namespace

HttpSession::HttpSession(boost::asio::ip::tcp::socket&& socket, boost::asio::ssl::context& tls, ApiRouter& router,
                         ServiceCore& core, ComputerConnections& connections)
    : stream_(std::move(socket), tls), deadline_(stream_.get_executor()), router_(router), core_(core),
      connections_(connections), clientAddress_(ClientAddress::ofPeer(stream_.socket())) {}

void HttpSession::start(std::shared_ptr<const void> connection, std::shared_ptr<const void> handshake) {
    stream_.holdWhileOpen(std::move(connection));
    handshakeLease_ = std::move(handshake);
    armDeadline(handshakeTimeout);
    stream_.async_handshake([self = shared_from_this()](beast::error_code error) { self->onHandshake(error); });
}

void HttpSession::onHandshake(beast::error_code error) {
    handshakeLease_.reset();
    if (!error) {
        readRequest();
    }
}

void HttpSession::readRequest() {
    parser_.emplace();
    parser_->header_limit(maxHeader);
    parser_->body_limit(maxBody);
    armDeadline(requestTimeout);
    http::async_read(stream_, buffer_, *parser_,
                     [self = shared_from_this()](beast::error_code error, std::size_t) { self->onRead(error); });
}

void HttpSession::onRead(beast::error_code error) {
    if (error == http::error::body_limit) {
        drainAfterResponse_ = true;
        respond(ApiRouter::errorResponse(parser_->get(), 413, "The request body is larger than 64 KiB."));
        return;
    }
    if (error == http::error::header_limit) {
        respond(ApiRouter::errorResponse(parser_->get(), 431, "The request header is larger than 8 KiB."));
        return;
    }
    if (error == http::error::end_of_stream) {
        shutdown();
        return;
    }
    if (error) {
        if (error.category() == beast::error_code(http::error::bad_target).category()) {
            respond(ApiRouter::errorResponse(parser_->get(), 400, "The request is not valid HTTP."));
        }
        return;
    }
    if (isComputerUpgrade()) {
        upgradeComputer();
        return;
    }
    respond(router_.handle(parser_->get(), clientAddress_));
}

bool HttpSession::isComputerUpgrade() const {
    const auto& request = parser_->get();
    const std::string_view target = request.target();
    return beast::websocket::is_upgrade(request) && target.substr(0, target.find('?')) == ApiPaths::connect;
}

void HttpSession::upgradeComputer() {
    auto request = parser_->release();
    const auto computerId = core_.authenticateComputer(ApiRouter::bearerToken(request));
    if (!computerId) {
        respond(ApiRouter::errorResponse(request, 401, "The credential is not valid."));
        return;
    }
    deadline_.cancel();
    // The computer may have sent its first frames right behind the request; they belong to the socket.
    stream_.giveBack(beast::buffers_to_string(buffer_.data()));
    const auto socket = std::make_shared<ComputerSocket>(std::move(stream_), *computerId, core_, connections_);
    socket->start(std::move(request));
}

void HttpSession::respond(ApiRouter::Response response) {
    const bool keepAlive = response.keep_alive();
    response_ = std::move(response);
    http::async_write(stream_, *response_,
                      [self = shared_from_this(), keepAlive](beast::error_code error, std::size_t) {
                          self->onWrite(error, keepAlive);
                      });
}

void HttpSession::onWrite(beast::error_code error, bool keepAlive) {
    response_.reset();
    if (error) {
        return;
    }
    if (keepAlive) {
        readRequest();
    } else if (drainAfterResponse_) {
        drainThenShutdown(0);
    } else {
        shutdown();
    }
}

// A client still sending a refused body would get a reset instead of the answer if the connection closed
// with its bytes unread; so they are read and dropped for a while first (up to 1 MiB, 5 seconds).
void HttpSession::drainThenShutdown(std::size_t drained) {
    constexpr std::size_t drainLimit = 1024 * 1024;
    if (drained == 0) {
        armDeadline(std::chrono::seconds(5));
    }
    buffer_.consume(buffer_.size());
    stream_.async_read_some(buffer_.prepare(16 * 1024),
                            [self = shared_from_this(), drained](beast::error_code error, std::size_t size) {
                                if (!error && drained + size < drainLimit) {
                                    self->drainThenShutdown(drained + size);
                                } else {
                                    self->shutdown();
                                }
                            });
}

void HttpSession::shutdown() {
    armDeadline(handshakeTimeout);
    stream_.async_shutdown([self = shared_from_this()](beast::error_code) {
        self->deadline_.cancel();
        beast::error_code ignored;
        self->stream_.socket().shutdown(boost::asio::ip::tcp::socket::shutdown_both, ignored);
        self->stream_.socket().close(ignored);
    });
}

void HttpSession::armDeadline(std::chrono::seconds limit) {
    deadline_.expires_after(limit);
    deadline_.async_wait([weak = weak_from_this()](beast::error_code error) {
        const auto self = weak.lock();
        if (!error && self) {
            beast::error_code ignored;
            self->stream_.socket().close(ignored);
        }
    });
}

} // namespace keyferry::service
