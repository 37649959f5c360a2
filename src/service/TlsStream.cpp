#include "TlsStream.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace keyferry::service {

TlsStream::TlsStream(boost::asio::ip::tcp::socket&& socket, boost::asio::ssl::context& context)
    : socket_(std::move(socket)), ssl_(SSL_new(context.native_handle())) {
    if (!ssl_) {
        throw std::runtime_error("cannot create a TLS session");
    }
    SSL_set_mode(ssl_, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER | SSL_MODE_RELEASE_BUFFERS);
    SSL_set_accept_state(ssl_);
    boost::system::error_code ignored;
    socket_.native_non_blocking(true, ignored);
    SSL_set_fd(ssl_, static_cast<int>(socket_.native_handle()));
}

TlsStream::TlsStream(TlsStream&& other) noexcept
    : socket_(std::move(other.socket_)), ssl_(std::exchange(other.ssl_, nullptr)),
      givenBack_(std::move(other.givenBack_)), lease_(std::move(other.lease_)) {}

TlsStream::~TlsStream() {
    if (ssl_) {
        SSL_free(ssl_);
    }
}

int TlsStream::takeGivenBack(boost::asio::mutable_buffer buffer, std::size_t& bytes) {
    bytes = std::min(buffer.size(), givenBack_.size());
    std::memcpy(buffer.data(), givenBack_.data(), bytes);
    givenBack_.erase(0, bytes);
    if (givenBack_.empty()) {
        givenBack_.shrink_to_fit();
    }
    return 1;
}

void beast_close_socket(TlsStream& stream) {
    boost::system::error_code ignored;
    stream.socket().close(ignored);
}

void teardown(boost::beast::role_type, TlsStream& stream, boost::system::error_code& error) {
    error = {};
    stream.socket().shutdown(boost::asio::ip::tcp::socket::shutdown_both, error);
    stream.socket().close(error);
}

} // namespace keyferry::service
