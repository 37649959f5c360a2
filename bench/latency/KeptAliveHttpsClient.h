#pragma once

#include "HttpsClient.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/ssl/ssl_stream.hpp>

#include <filesystem>
#include <optional>
#include <string>

namespace keyferry::service {

// HTTPS requests to the service over one TLS connection kept alive between them, as the phone page's browser
// makes them; opened again once when the service closed it. Verifies the certificate against the given
// authority (host name "localhost"). Single-threaded, owned by the benchmark; failures to connect throw.
class KeptAliveHttpsClient {
public:
    KeptAliveHttpsClient(unsigned short port, const std::filesystem::path& authority,
                         std::string address = "127.0.0.1");

    HttpsClient::Answer exchange(const std::string& method, const std::string& target, const std::string& token,
                                 const std::string& body);

private:
    void connect();
    HttpsClient::Answer exchangeOnce(const std::string& method, const std::string& target, const std::string& token,
                                     const std::string& body);

    boost::asio::io_context io_;
    boost::asio::ssl::context tls_;
    unsigned short port_;
    std::string address_;
    std::optional<boost::beast::ssl_stream<boost::beast::tcp_stream>> stream_;
    boost::beast::flat_buffer buffer_;
};

} // namespace keyferry::service
