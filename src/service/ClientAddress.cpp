#include "ClientAddress.h"

#include <boost/asio/ip/address.hpp>

namespace keyferry::service::ClientAddress {

std::string limitKey(const std::string& address) {
    boost::system::error_code error;
    const auto parsed = boost::asio::ip::make_address(address, error);
    if (error) {
        return address;
    }
    if (parsed.is_v4()) {
        return parsed.to_v4().to_string();
    }
    const auto v6 = parsed.to_v6();
    if (v6.is_v4_mapped()) {
        return boost::asio::ip::make_address_v4(boost::asio::ip::v4_mapped, v6).to_string();
    }
    auto bytes = v6.to_bytes();
    std::fill(bytes.begin() + 8, bytes.end(), static_cast<unsigned char>(0));
    return boost::asio::ip::address_v6(bytes).to_string() + "/64";
}

std::string ofPeer(const boost::asio::ip::tcp::socket& socket) {
    boost::system::error_code error;
    const auto endpoint = socket.remote_endpoint(error);
    return error ? std::string("unknown") : endpoint.address().to_string();
}

} // namespace keyferry::service::ClientAddress
