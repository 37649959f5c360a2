#pragma once

#include "TlsStream.h"

#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/websocket/stream.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace keyferry::service {

class ComputerConnections;
class ServiceCore;

// One computer's WebSocket ("/v1/computers/connect"). After the upgrade it sends {"type":"connected"},
// then every text not yet typed, in order, and each new one as it arrives; it takes {"type":"ack","id"}
// and tells the core. Protocol pings are answered by Beast; a silent peer is pinged and then dropped.
// Owned by its pending asynchronous operations (shared_from_this); borrows the core and the registry,
// which outlive it. Network thread only. Network errors end the socket quietly.
class ComputerSocket : public std::enable_shared_from_this<ComputerSocket> {
public:
    enum class CloseReason { replaced, revoked, goingAway };
    using UpgradeRequest = boost::beast::http::request<boost::beast::http::string_body>;

    ComputerSocket(TlsStream&& stream, std::string computerId, ServiceCore& core, ComputerConnections& connections);

    // Completes the WebSocket handshake of `request` and starts the session.
    void start(UpgradeRequest request);
    void deliverNewTexts();
    void sendPhonesChanged();
    void close(CloseReason reason);
    const std::string& computerId() const { return computerId_; }

private:
    void onAccept(boost::beast::error_code error);
    void readNext();
    void onRead(boost::beast::error_code error);
    void handleFrame();
    void send(std::string frame);
    void writeNext();
    void onWrite(boost::beast::error_code error);
    void end();

    boost::beast::websocket::stream<TlsStream> socket_;
    std::string computerId_;
    ServiceCore& core_;
    ComputerConnections& connections_;
    std::optional<UpgradeRequest> upgrade_;
    boost::beast::flat_buffer incoming_{32 * 1024}; // above the frame limit, so that Beast refuses first
    std::vector<std::string> outbox_;
    std::int64_t lastSentSerial_ = 0;
    bool open_ = false;
    bool writing_ = false;
    bool closing_ = false;
};

} // namespace keyferry::service
