#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/ssl/ssl_stream.hpp>
#include <boost/beast/websocket/stream.hpp>

#include <functional>
#include <memory>
#include <string>

namespace keyferry::service {

// One computer that connects its WebSocket to the service and then only listens (answering the
// service's pings, as Beast does while a read is pending). Reports once whether it got {"type":
// "connected"}. Owned by its pending operations; single-threaded on the given io_context.
class IdleComputer : public std::enable_shared_from_this<IdleComputer> {
public:
    IdleComputer(boost::asio::io_context& io, boost::asio::ssl::context& tls, std::string token);

    // Connects from `source` (a loopback address) to 127.0.0.1:port; `onReady(true)` once connected.
    void start(const boost::asio::ip::address& source, unsigned short port, std::function<void(bool)> onReady);
    void close();
    // Whether the socket is connected and has not seen an error since.
    bool isOpen() const { return open_; }

private:
    void fail();
    void listen();

    boost::beast::websocket::stream<boost::beast::ssl_stream<boost::beast::tcp_stream>> socket_;
    std::string token_;
    boost::beast::flat_buffer buffer_;
    std::function<void(bool)> onReady_;
    bool open_ = false;
};

} // namespace keyferry::service
