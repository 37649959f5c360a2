#include "WebSocketClient.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/beast/core/buffers_to_string.hpp>
#include <boost/beast/websocket/ssl.hpp>

namespace keyferry::service {
namespace {

namespace beast = boost::beast;
namespace ssl = boost::asio::ssl;
namespace websocket = beast::websocket;

ssl::context clientContext(const std::filesystem::path& authority) {
    ssl::context tls(ssl::context::tls_client);
    tls.load_verify_file(authority.string());
    tls.set_verify_mode(ssl::verify_peer);
    return tls;
}

} // namespace

WebSocketClient::WebSocketClient(unsigned short port, const std::filesystem::path& authority)
    : tls_(clientContext(authority)), port_(port), socket_(io_, tls_) {}

int WebSocketClient::connect(const std::string& token) {
    auto& tlsLayer = socket_.next_layer();
    tlsLayer.set_verify_callback(ssl::host_name_verification("localhost"));
    beast::get_lowest_layer(socket_).connect(
        boost::asio::ip::tcp::endpoint(boost::asio::ip::make_address("127.0.0.1"), port_));
    tlsLayer.handshake(ssl::stream_base::client);
    socket_.set_option(websocket::stream_base::decorator([token](websocket::request_type& request) {
        request.set(beast::http::field::authorization, "Bearer " + token);
    }));
    // The asynchronous handshake keeps the refusal's response, which tells its status.
    websocket::response_type response;
    bool done = false;
    socket_.async_handshake(response, "localhost", "/v1/computers/connect",
                            [&done](beast::error_code) { done = true; });
    runUntil(done, std::chrono::seconds(10));
    return static_cast<int>(response.result_int());
}

std::optional<nlohmann::json> WebSocketClient::read(std::chrono::milliseconds timeout) {
    if (!reading_) {
        reading_ = true;
        readDone_ = false;
        socket_.async_read(buffer_, [this](beast::error_code error, std::size_t) {
            readError_ = error;
            readDone_ = true;
        });
    }
    if (!runUntil(readDone_, timeout)) {
        return std::nullopt;
    }
    reading_ = false;
    if (readError_) {
        return std::nullopt;
    }
    auto frame = nlohmann::json::parse(beast::buffers_to_string(buffer_.data()), nullptr, false);
    buffer_.consume(buffer_.size());
    return frame;
}

void WebSocketClient::send(const nlohmann::json& frame) {
    socket_.text(true);
    bool done = false;
    const std::string text = frame.dump(); // must outlive the write, which may take several steps
    socket_.async_write(boost::asio::buffer(text), [&done](beast::error_code, std::size_t) { done = true; });
    runUntil(done, std::chrono::seconds(5));
}

std::optional<int> WebSocketClient::waitForClose(std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (std::chrono::steady_clock::now() < deadline) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (read(left)) {
            continue;
        }
        if (!reading_) {
            return static_cast<int>(socket_.reason().code);
        }
    }
    return std::nullopt;
}

unsigned short WebSocketClient::localPort() {
    beast::error_code error;
    const auto endpoint = beast::get_lowest_layer(socket_).socket().local_endpoint(error);
    return error ? 0 : endpoint.port();
}

void WebSocketClient::drop() {
    beast::error_code ignored;
    beast::get_lowest_layer(socket_).socket().shutdown(boost::asio::ip::tcp::socket::shutdown_both, ignored);
    beast::get_lowest_layer(socket_).socket().close(ignored);
    io_.poll();
}

bool WebSocketClient::runUntil(const bool& done, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    io_.restart();
    while (!done && std::chrono::steady_clock::now() < deadline) {
        if (io_.run_one_until(deadline) == 0 && io_.stopped()) {
            io_.restart();
        }
    }
    return done;
}

} // namespace keyferry::service
