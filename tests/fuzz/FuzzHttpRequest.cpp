// libFuzzer target: bytes from a client as the service reads them. Parses them as one HTTP request under
// the service's own header and body limits, then answers it through the router (JSON body checks, the
// rules, an in-memory database), as a connection would.
#include "ApiRouter.h"
#include "HttpSession.h"
#include "SqliteStorage.h"

#include <boost/beast/core/buffers_to_string.hpp>
#include <boost/beast/http/parser.hpp>

#include <cstddef>
#include <cstdint>

namespace {

using namespace keyferry::service;
namespace http = boost::beast::http;

struct Service {
    ManualClock clock{1'800'000'000'000};
    SqliteStorage storage{":memory:"};
    ServiceCore core{clock, storage};
    ApiRouter router{core, "-----BEGIN CERTIFICATE-----\n-----END CERTIFICATE-----\n"};
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Service service;
    http::request_parser<http::string_body> parser;
    parser.header_limit(HttpSession::maxHeader);
    parser.body_limit(HttpSession::maxBody);
    parser.eager(true);
    boost::beast::error_code error;
    parser.put(boost::asio::buffer(data, size), error);
    if (!error && !parser.is_done()) {
        parser.put_eof(error);
    }
    if (error || !parser.is_done()) {
        return 0;
    }
    // Time moves on so the per-minute limits open again now and then.
    service.clock.advanceMs(1000);
    const auto response = service.router.handle(parser.get(), "192.0.2.1");
    if (response.result_int() < 200 || response.result_int() > 599) {
        __builtin_trap();
    }
    return 0;
}
