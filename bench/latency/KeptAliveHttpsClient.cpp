#include "KeptAliveHttpsClient.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/beast/http.hpp>

namespace keyferry::service {
namespace {

namespace beast = boost::beast;
namespace http = beast::http;
namespace ssl = boost::asio::ssl;

} // namespace

KeptAliveHttpsClient::KeptAliveHttpsClient(unsigned short port, const std::filesystem::path& authority,
                                           std::string address)
    : tls_(ssl::context::tls_client), port_(port), address_(std::move(address)) {
    tls_.load_verify_file(authority.string());
    tls_.set_verify_mode(ssl::verify_peer);
}

HttpsClient::Answer KeptAliveHttpsClient::exchange(const std::string& method, const std::string& target,
                                                   const std::string& token, const std::string& body) {
    if (stream_) {
        try {
            return exchangeOnce(method, target, token, body);
        } catch (const beast::system_error&) {
            stream_.reset(); // the service closed the idle connection: open a new one, as a browser does
        }
    }
    connect();
    return exchangeOnce(method, target, token, body);
}

void KeptAliveHttpsClient::connect() {
    stream_.emplace(io_, tls_);
    stream_->set_verify_callback(ssl::host_name_verification("localhost"));
    auto& socket = beast::get_lowest_layer(*stream_);
    socket.connect(boost::asio::ip::tcp::endpoint(boost::asio::ip::make_address(address_), port_));
    socket.socket().set_option(boost::asio::ip::tcp::no_delay(true));
    stream_->handshake(ssl::stream_base::client);
    buffer_.clear();
}

HttpsClient::Answer KeptAliveHttpsClient::exchangeOnce(const std::string& method, const std::string& target,
                                                       const std::string& token, const std::string& body) {
    auto request = HttpsClient::requestOf(method, target, token, body);
    request.keep_alive(true);
    http::write(*stream_, request);

    http::response_parser<http::string_body> parser;
    parser.body_limit(16 * 1024 * 1024);
    http::read(*stream_, buffer_, parser);
    auto response = parser.release();
    if (!response.keep_alive()) {
        stream_.reset();
    }
    return HttpsClient::answerOf(static_cast<int>(response.result_int()), response.body(), response.base());
}

} // namespace keyferry::service
