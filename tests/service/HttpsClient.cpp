#include "HttpsClient.h"

#include <boost/asio/connect.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl.hpp>

namespace keyferry::service {
namespace {

namespace beast = boost::beast;
namespace http = beast::http;
namespace ssl = boost::asio::ssl;

} // namespace

HttpsClient::HttpsClient(unsigned short port, std::filesystem::path authority, std::string address)
    : port_(port), authority_(std::move(authority)), address_(std::move(address)) {}

HttpsClient::Answer HttpsClient::get(const std::string& target, const std::string& token) const {
    return exchange("GET", target, token, {});
}

HttpsClient::Answer HttpsClient::post(const std::string& target, const std::string& token,
                                      const std::string& body) const {
    return exchange("POST", target, token, body);
}

HttpsClient::Answer HttpsClient::exchange(const std::string& method, const std::string& target,
                                          const std::string& token, const std::string& body) const {
    return send(requestOf(method, target, token, body));
}

HttpsClient::Answer HttpsClient::send(const http::request<http::string_body>& request) const {
    boost::asio::io_context io;
    ssl::context tls(ssl::context::tls_client);
    tls.load_verify_file(authority_.string());
    tls.set_verify_mode(ssl::verify_peer);
    beast::ssl_stream<beast::tcp_stream> stream(io, tls);
    stream.set_verify_callback(ssl::host_name_verification("localhost"));
    beast::get_lowest_layer(stream).connect(
        boost::asio::ip::tcp::endpoint(boost::asio::ip::make_address(address_), port_));
    stream.handshake(ssl::stream_base::client);

    http::write(stream, request);

    beast::flat_buffer buffer;
    http::response_parser<http::string_body> parser;
    parser.body_limit(16 * 1024 * 1024);
    http::read(stream, buffer, parser);
    auto response = parser.release();
    beast::error_code ignored;
    stream.shutdown(ignored);

    return answerOf(static_cast<int>(response.result_int()), response.body(), response.base());
}

http::request<http::string_body> HttpsClient::requestOf(const std::string& method, const std::string& target,
                                                        const std::string& token, const std::string& body) {
    http::request<http::string_body> request{http::string_to_verb(method), target, 11};
    request.set(http::field::host, "localhost");
    if (!token.empty()) {
        request.set(http::field::authorization, "Bearer " + token);
    }
    if (!body.empty()) {
        request.set(http::field::content_type, "application/json");
        request.body() = body;
    }
    request.prepare_payload();
    return request;
}

HttpsClient::Answer HttpsClient::answerOf(int status, std::string body, boost::beast::http::fields headers) {
    Answer answer;
    answer.status = status;
    answer.body = std::move(body);
    answer.json = nlohmann::json::parse(answer.body, nullptr, false);
    if (answer.json.is_discarded()) {
        answer.json = nullptr;
    }
    answer.headers = std::move(headers);
    return answer;
}

} // namespace keyferry::service
