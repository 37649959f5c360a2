// What the service refuses at its door, over real TLS on 127.0.0.1: bodies that are not declared JSON
// (a web page can send text/plain across origins without asking), TLS 1.2 suites without AEAD, and names
// that would show one thing and mean another.
#include "HttpsClient.h"
#include "ServiceClock.h"
#include "TempFolder.h"
#include "TestServer.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/beast/http.hpp>
#include <gtest/gtest.h>

namespace keyferry::service {
namespace {

namespace http = boost::beast::http;
using nlohmann::json;

class RequestChecksTest : public ::testing::Test {
protected:
    HttpsClient::Answer postAs(const std::string& target, const std::string& contentType, const json& body) {
        auto request = HttpsClient::requestOf("POST", target, "", body.dump());
        if (contentType.empty()) {
            request.erase(http::field::content_type);
        } else {
            request.set(http::field::content_type, contentType);
        }
        return client.send(request);
    }
    std::string newCode() {
        const auto answer = client.post("/v1/computers/pair/start", "", json{{"name", "Desk"}, {"platform", "linux"}});
        EXPECT_EQ(answer.status, 200) << answer.body;
        return answer.json.value("pairCode", "");
    }
    // Whether a TLS 1.2 client offering only `ciphers` completes its handshake with the service.
    bool handshakeSucceeds(const char* ciphers) {
        boost::asio::io_context io;
        boost::asio::ssl::context tls(boost::asio::ssl::context::tls_client);
        SSL_CTX_set_max_proto_version(tls.native_handle(), TLS1_2_VERSION);
        EXPECT_EQ(SSL_CTX_set_cipher_list(tls.native_handle(), ciphers), 1) << ciphers;
        tls.load_verify_file(server.authority().string());
        tls.set_verify_mode(boost::asio::ssl::verify_peer);
        boost::asio::ssl::stream<boost::asio::ip::tcp::socket> stream(io, tls);
        stream.next_layer().connect({boost::asio::ip::make_address("127.0.0.1"), server.port()});
        boost::system::error_code error;
        stream.handshake(boost::asio::ssl::stream_base::client, error);
        return !error;
    }

    TempFolder folder;
    ManualClock clock{1'800'000'000'000};
    TestServer server{folder.path(), clock};
    HttpsClient client{server.port(), server.authority()};
};

TEST_F(RequestChecksTest, ACrossOriginTextPlainPostIsRefused) {
    const std::string code = newCode();
    const json pairing{{"code", code}, {"name", "Pixel"}};
    const auto refused = postAs("/v1/phones/pair", "text/plain", pairing);
    EXPECT_EQ(refused.status, 415);
    EXPECT_NE(refused.json.value("error", ""), "") << refused.body;
    EXPECT_EQ(postAs("/v1/phones/pair", "", pairing).status, 415);
    EXPECT_EQ(postAs("/v1/phones/pair", "application/x-www-form-urlencoded", pairing).status, 415);
    EXPECT_EQ(postAs("/v1/computers/pair/start", "text/plain", json{{"name", "Desk"}, {"platform", "linux"}}).status,
              415);
    EXPECT_EQ(postAs("/v1/phones/pair", "Application/JSON; charset=utf-8", pairing).status, 200);
}

TEST_F(RequestChecksTest, TextsAndRemovalsTakeOnlyJsonBodies) {
    const std::string code = newCode();
    const auto phone = client.post("/v1/phones/pair", "", json{{"code", code}, {"name", "Pixel"}});
    ASSERT_EQ(phone.status, 200);
    auto request =
        HttpsClient::requestOf("POST", "/v1/phones/texts", phone.json["phoneToken"], json{{"text", "hi"}}.dump());
    request.set(http::field::content_type, "text/plain;charset=UTF-8");
    EXPECT_EQ(client.send(request).status, 415);
    request.set(http::field::content_type, "application/json;charset=UTF-8");
    EXPECT_EQ(client.send(request).status, 200);
}

TEST_F(RequestChecksTest, Tls12OffersOnlyAeadSuites) {
    EXPECT_TRUE(handshakeSucceeds("ECDHE-ECDSA-AES128-GCM-SHA256"));
    EXPECT_TRUE(handshakeSucceeds("ECDHE-ECDSA-CHACHA20-POLY1305"));
    EXPECT_FALSE(handshakeSucceeds("ECDHE-ECDSA-AES128-SHA"));
    EXPECT_FALSE(handshakeSucceeds("ECDHE-ECDSA-AES256-SHA384"));
}

TEST_F(RequestChecksTest, NamesWithInvisibleOrDirectionControlsAreRefused) {
    for (const char* control : {"\u202E", "\u200B", "\u200E", "\u200F", "\u2066", "\u2069", "\u061C", "\uFEFF",
                                "\u00AD", "\u202A", "\u2060", "\u0085"}) {
        const auto answer = client.post("/v1/computers/pair/start", "",
                                        json{{"name", std::string("Desk") + control + "txt"}, {"platform", "linux"}});
        EXPECT_EQ(answer.status, 400) << "a name with an invisible or direction control: " << answer.body;
    }
    EXPECT_EQ(
        client.post("/v1/computers/pair/start", "", json{{"name", "Büro · 办公室 ✓"}, {"platform", "linux"}}).status,
        200);
}

// The server ends while one client holds an idle connection and another a handshake in progress: those
// connections give their places back as the server's parts are taken down, and nothing crashes.
TEST(ServerStopTest, StopsWhileClientsHoldConnectionsAndHandshakes) {
    TempFolder folder;
    ManualClock clock{1'800'000'000'000};
    auto server = std::make_unique<TestServer>(folder.path(), clock);
    boost::asio::io_context io;
    boost::asio::ssl::context tls(boost::asio::ssl::context::tls_client);
    tls.load_verify_file(server->authority().string());
    boost::asio::ssl::stream<boost::asio::ip::tcp::socket> kept(io, tls);
    kept.next_layer().connect({boost::asio::ip::make_address("127.0.0.1"), server->port()});
    kept.handshake(boost::asio::ssl::stream_base::client);
    boost::asio::ip::tcp::socket silent(io);
    silent.connect({boost::asio::ip::make_address("127.0.0.1"), server->port()});
    // The server has surely accepted both once it answers a third connection.
    EXPECT_EQ(HttpsClient(server->port(), server->authority()).get("/").status, 200);
    server.reset();
}

} // namespace
} // namespace keyferry::service
