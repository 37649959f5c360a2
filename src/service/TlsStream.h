#pragma once

#include <boost/asio/compose.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/ssl/error.hpp>
#include <boost/beast/core/role.hpp>

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <cerrno>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>

namespace keyferry::service {

// A server-side TLS stream for Beast: OpenSSL reads and writes the non-blocking socket itself, and the
// stream waits for readiness between attempts. Unlike asio::ssl::stream it keeps no staging buffers of
// its own, and OpenSSL releases its record buffers while a connection is idle, so an idle computer costs
// a few KiB instead of tens. One read and one write may be pending at once (Beast's rule); every
// operation completes through the socket's executor, never inline. Owns the socket and the SSL object;
// may be moved only while no operation is pending. Network thread only.
class TlsStream {
public:
    using executor_type = boost::asio::ip::tcp::socket::executor_type;

    TlsStream(boost::asio::ip::tcp::socket&& socket, boost::asio::ssl::context& context);
    TlsStream(TlsStream&& other) noexcept;
    TlsStream& operator=(TlsStream&&) = delete;
    TlsStream(const TlsStream&) = delete;
    ~TlsStream();

    executor_type get_executor() { return socket_.get_executor(); }
    // Hands back bytes read from the peer past what their reader needed (an HTTP request that a WebSocket
    // follows in the same write): the next reads return them before anything else.
    void giveBack(std::string bytes) { givenBack_ = std::move(bytes); }
    // Keeps `lease` (a connection's place among its client's) for as long as this stream lives, wherever
    // it is moved.
    void holdWhileOpen(std::shared_ptr<const void> lease) { lease_ = std::move(lease); }
    boost::asio::ip::tcp::socket& socket() { return socket_; }

    template <class Token> auto async_handshake(Token&& token) {
        return start<false>([](SSL* ssl, std::size_t&) { return SSL_do_handshake(ssl); }, std::forward<Token>(token));
    }

    // Sends close_notify; does not wait for the peer's.
    template <class Token> auto async_shutdown(Token&& token) {
        return start<false>(
            [](SSL* ssl, std::size_t&) {
                const int result = SSL_shutdown(ssl);
                return result >= 0 ? 1 : result;
            },
            std::forward<Token>(token));
    }

    template <class MutableBuffers, class Token> auto async_read_some(const MutableBuffers& buffers, Token&& token) {
        const auto buffer = firstBuffer<boost::asio::mutable_buffer>(buffers);
        if (!givenBack_.empty()) {
            return start<true>([this, buffer](SSL*, std::size_t& bytes) { return takeGivenBack(buffer, bytes); },
                               std::forward<Token>(token));
        }
        return start<true>(
            [buffer](SSL* ssl, std::size_t& bytes) {
                return buffer.size() == 0 ? 1 : SSL_read_ex(ssl, buffer.data(), buffer.size(), &bytes);
            },
            std::forward<Token>(token), buffer.size() == 0 ? FirstStep::post : FirstStep::waitForData);
    }

    template <class ConstBuffers, class Token> auto async_write_some(const ConstBuffers& buffers, Token&& token) {
        const auto buffer = firstBuffer<boost::asio::const_buffer>(buffers);
        return start<true>(
            [buffer](SSL* ssl, std::size_t& bytes) {
                return buffer.size() == 0 ? 1 : SSL_write_ex(ssl, buffer.data(), buffer.size(), &bytes);
            },
            std::forward<Token>(token));
    }

private:
    // One OpenSSL call retried until it succeeds or fails for good. The first step is posted so that no
    // operation completes inside its initiating call.
    // A read first waits for the socket unless OpenSSL holds unprocessed bytes: an SSL_read on an idle
    // socket would allocate a record buffer and keep it for as long as the connection stays quiet.
    enum class FirstStep { post, waitForData };

    template <bool WithSize, class Attempt> struct Operation {
        TlsStream& stream;
        Attempt attempt;
        FirstStep firstStep = FirstStep::post;
        bool started = false;

        template <class Self> void operator()(Self& self, boost::system::error_code waitError = {}) {
            if (!started) {
                started = true;
                if (firstStep == FirstStep::waitForData && SSL_has_pending(stream.ssl_) == 0) {
                    stream.socket_.async_wait(boost::asio::ip::tcp::socket::wait_read, std::move(self));
                } else {
                    boost::asio::post(stream.socket_.get_executor(), std::move(self));
                }
                return;
            }
            if (waitError) {
                return finish(self, waitError, 0);
            }
            ERR_clear_error();
            // SSL_ERROR_SYSCALL is told by errno, so it must be this attempt's, not one left by an earlier call.
            errno = 0;
            std::size_t bytes = 0;
            const int result = attempt(stream.ssl_, bytes);
            const int attemptErrno = errno;
            if (result > 0) {
                return finish(self, {}, bytes);
            }
            switch (SSL_get_error(stream.ssl_, result)) {
            case SSL_ERROR_WANT_READ:
                return stream.socket_.async_wait(boost::asio::ip::tcp::socket::wait_read, std::move(self));
            case SSL_ERROR_WANT_WRITE:
                return stream.socket_.async_wait(boost::asio::ip::tcp::socket::wait_write, std::move(self));
            case SSL_ERROR_ZERO_RETURN:
                return finish(self, boost::asio::error::eof, 0);
            case SSL_ERROR_SYSCALL:
                return finish(self,
                              attemptErrno ? boost::system::error_code(attemptErrno, boost::system::system_category())
                                           : boost::system::error_code(boost::asio::error::eof),
                              0);
            default:
                return finish(self,
                              boost::system::error_code(static_cast<int>(ERR_get_error()),
                                                        boost::asio::error::get_ssl_category()),
                              0);
            }
        }

        template <class Self> static void finish(Self& self, boost::system::error_code error, std::size_t bytes) {
            if constexpr (WithSize) {
                self.complete(error, bytes);
            } else {
                self.complete(error);
            }
        }
    };

    template <bool WithSize, class Attempt, class Token>
    auto start(Attempt attempt, Token&& token, FirstStep firstStep = FirstStep::post) {
        using Signature =
            std::conditional_t<WithSize, void(boost::system::error_code, std::size_t), void(boost::system::error_code)>;
        return boost::asio::async_compose<Token, Signature>(
            Operation<WithSize, Attempt>{*this, std::move(attempt), firstStep}, token, socket_);
    }

    template <class Buffer, class Buffers> static Buffer firstBuffer(const Buffers& buffers) {
        for (auto it = boost::asio::buffer_sequence_begin(buffers); it != boost::asio::buffer_sequence_end(buffers);
             ++it) {
            const Buffer buffer(*it);
            if (buffer.size() > 0) {
                return buffer;
            }
        }
        return Buffer();
    }

    int takeGivenBack(boost::asio::mutable_buffer buffer, std::size_t& bytes);

    boost::asio::ip::tcp::socket socket_;
    SSL* ssl_ = nullptr;
    std::string givenBack_;
    std::shared_ptr<const void> lease_;
};

// How Beast closes the stream at its lowest layer (time-outs, failed handshakes).
void beast_close_socket(TlsStream& stream);

// How a WebSocket over this stream ends after its closing handshake: close_notify, then the socket.
void teardown(boost::beast::role_type role, TlsStream& stream, boost::system::error_code& error);

template <class Handler> void async_teardown(boost::beast::role_type, TlsStream& stream, Handler&& handler) {
    stream.async_shutdown([&stream, handler = std::forward<Handler>(handler)](boost::system::error_code) mutable {
        boost::system::error_code ignored;
        stream.socket().shutdown(boost::asio::ip::tcp::socket::shutdown_both, ignored);
        stream.socket().close(ignored);
        std::move(handler)(boost::system::error_code());
    });
}

} // namespace keyferry::service
