// A computer may send its first frames in the same write as the WebSocket upgrade request: the bytes the
// service read past the request belong to the socket and must not be lost.
#include "WireTest.h"

#include <boost/asio/ssl.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl.hpp>

#include <gtest/gtest.h>

namespace keyferry::service {
namespace {

namespace beast = boost::beast;
namespace http = beast::http;
namespace ssl = boost::asio::ssl;

std::string upgradeRequest(const std::string& token) {
    return "GET /v1/computers/connect HTTP/1.1\r\n"
           "Host: localhost\r\n"
           "Upgrade: websocket\r\n"
           "Connection: Upgrade\r\n"
           "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"
           "Sec-WebSocket-Version: 13\r\n"
           "Authorization: Bearer " +
           token + "\r\n\r\n";
}

// A client's text frame (masked, as clients must) of a payload shorter than 126 bytes.
std::string maskedTextFrame(const std::string& payload) {
    const unsigned char mask[4] = {0x12, 0x34, 0x56, 0x78};
    std::string frame{'\x81', static_cast<char>(0x80 | payload.size())};
    frame.append(reinterpret_cast<const char*>(mask), 4);
    for (std::size_t i = 0; i < payload.size(); ++i) {
        frame += static_cast<char>(static_cast<unsigned char>(payload[i]) ^ mask[i % 4]);
    }
    return frame;
}

class UpgradeBytesTest : public WireTest {};

TEST_F(UpgradeBytesTest, AnAckSentInTheSameWriteAsTheUpgradeIsHandled) {
    const auto [computer, phone] = pairedComputer();
    const std::string id = sendText(phone, "typed before the socket opened");
    const std::string ack = nlohmann::json{{"type", "ack"}, {"id", id}}.dump();
    ASSERT_LT(ack.size(), 126u);

    boost::asio::io_context io;
    ssl::context tls(ssl::context::tls_client);
    tls.load_verify_file(server->authority().string());
    tls.set_verify_mode(ssl::verify_peer);
    beast::ssl_stream<beast::tcp_stream> stream(io, tls);
    beast::get_lowest_layer(stream).connect(
        boost::asio::ip::tcp::endpoint(boost::asio::ip::make_address("127.0.0.1"), server->port()));
    stream.handshake(ssl::stream_base::client);
    boost::asio::write(stream, boost::asio::buffer(upgradeRequest(computer.token) + maskedTextFrame(ack)));

    beast::flat_buffer buffer;
    http::response_parser<http::empty_body> upgrade;
    http::read_header(stream, buffer, upgrade);
    ASSERT_EQ(upgrade.get().result(), http::status::switching_protocols);
    EXPECT_TRUE(eventuallyState(phone, id, "typed"));
}

} // namespace
} // namespace keyferry::service
