#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/ssl/ssl_stream.hpp>
#include <boost/beast/websocket/stream.hpp>
#include <nlohmann/json.hpp>

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace keyferry::service {

// A computer's WebSocket to the service on 127.0.0.1, as a test drives it: frames are read with a time
// limit, and a read that timed out stays pending for the next call. Single-threaded; owned by the test.
class WebSocketClient {
public:
    WebSocketClient(unsigned short port, const std::filesystem::path& authority);

    // Opens "/v1/computers/connect" with the bearer token; returns the HTTP status of the upgrade answer
    // (101 when the socket is open).
    int connect(const std::string& token);
    // The next frame as JSON, or nothing when none arrived in time or the socket closed.
    std::optional<nlohmann::json> read(std::chrono::milliseconds timeout = std::chrono::seconds(5));
    void send(const nlohmann::json& frame);
    void ack(const std::string& id) { send({{"type", "ack"}, {"id", id}}); }
    // Waits for the server to close the socket; its close code, or nothing on time-out.
    std::optional<int> waitForClose(std::chrono::milliseconds timeout = std::chrono::seconds(5));
    // The client's own TCP port (0 before connect).
    unsigned short localPort();
    // Cuts the TCP connection without a closing handshake, as a network failure would.
    void drop();

private:
    bool runUntil(const bool& done, std::chrono::milliseconds timeout);

    boost::asio::io_context io_;
    boost::asio::ssl::context tls_;
    unsigned short port_;
    boost::beast::websocket::stream<boost::beast::ssl_stream<boost::beast::tcp_stream>> socket_;
    boost::beast::flat_buffer buffer_;
    bool reading_ = false;
    bool readDone_ = false;
    boost::beast::error_code readError_;
};

} // namespace keyferry::service
