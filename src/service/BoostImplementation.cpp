// The one place where Boost.Asio (with its TLS layer) and Boost.Beast are compiled: every other file of the
// service, its tests and benchmarks include their declarations only, which makes each of them build faster.
#include <boost/asio/impl/src.hpp>
#include <boost/asio/ssl/impl/src.hpp>
#include <boost/beast/src.hpp>
