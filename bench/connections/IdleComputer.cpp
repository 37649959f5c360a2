#include "IdleComputer.h"

#include <boost/asio/ssl.hpp>
#include <boost/beast/core/buffers_to_string.hpp>
#include <boost/beast/websocket/ssl.hpp>

namespace keyferry::service {
namespace {

namespace beast = boost::beast;
namespace websocket = beast::websocket;
using tcp = boost::asio::ip::tcp;

} // namespace

IdleComputer::IdleComputer(boost::asio::io_context& io, boost::asio::ssl::context& tls, std::string token)
    : socket_(io, tls), token_(std::move(token)) {}

void IdleComputer::start(const boost::asio::ip::address& source, unsigned short port,
                         std::function<void(bool)> onReady) {
    onReady_ = std::move(onReady);
    auto& tcpSocket = beast::get_lowest_layer(socket_).socket();
    beast::error_code error;
    tcpSocket.open(tcp::v4(), error);
    if (!error) {
        tcpSocket.bind(tcp::endpoint(source, 0), error);
    }
    if (error) {
        fail();
        return;
    }
    beast::get_lowest_layer(socket_).expires_after(std::chrono::seconds(60));
    const tcp::endpoint service(boost::asio::ip::make_address("127.0.0.1"), port);
    beast::get_lowest_layer(socket_).async_connect(service, [self =
                                                                 shared_from_this()](beast::error_code connectError) {
        if (connectError) {
            return self->fail();
        }
        self->socket_.next_layer().async_handshake(
            boost::asio::ssl::stream_base::client, [self](beast::error_code tlsError) {
                if (tlsError) {
                    return self->fail();
                }
                beast::get_lowest_layer(self->socket_).expires_never();
                self->socket_.set_option(websocket::stream_base::timeout::suggested(beast::role_type::client));
                self->socket_.set_option(
                    websocket::stream_base::decorator([token = self->token_](websocket::request_type& r) {
                        r.set(beast::http::field::authorization, "Bearer " + token);
                    }));
                self->socket_.async_handshake("localhost", "/v1/computers/connect", [self](beast::error_code wsError) {
                    if (wsError) {
                        return self->fail();
                    }
                    self->socket_.async_read(self->buffer_, [self](beast::error_code readError, std::size_t) {
                        const bool connected =
                            !readError &&
                            beast::buffers_to_string(self->buffer_.data()).find("\"connected\"") != std::string::npos;
                        if (!connected) {
                            return self->fail();
                        }
                        self->open_ = true;
                        self->onReady_(true);
                        self->onReady_ = nullptr;
                        self->listen();
                    });
                });
            });
    });
}

void IdleComputer::listen() {
    buffer_.consume(buffer_.size());
    socket_.async_read(buffer_, [self = shared_from_this()](beast::error_code error, std::size_t) {
        if (error) {
            self->open_ = false;
        } else {
            self->listen();
        }
    });
}

void IdleComputer::close() {
    beast::error_code ignored;
    beast::get_lowest_layer(socket_).socket().close(ignored);
}

void IdleComputer::fail() {
    if (onReady_) {
        onReady_(false);
        onReady_ = nullptr;
    }
}

} // namespace keyferry::service
