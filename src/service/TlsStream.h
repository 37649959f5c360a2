#pragma once

#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/ssl/ssl_stream.hpp>

namespace keyferry::service {

// Every connection of the service: TCP with Beast's timeouts, under TLS.
using TlsStream = boost::beast::ssl_stream<boost::beast::tcp_stream>;

} // namespace keyferry::service
