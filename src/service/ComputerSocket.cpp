#include "ComputerSocket.h"

#include "ComputerConnections.h"
#include "ServiceCore.h"

#include <boost/beast/core/buffers_to_string.hpp>
#include <nlohmann/json.hpp>

#include <chrono>

namespace keyferry::service {
namespace {

namespace beast = boost::beast;
namespace websocket = beast::websocket;
using nlohmann::json;

constexpr std::size_t maxIncomingFrame = 16 * 1024;
// What a pending read reserves. Acknowledgements fit; a longer frame simply arrives in several pieces.
constexpr std::size_t readPiece = 256;

websocket::close_reason closeReasonOf(ComputerSocket::CloseReason reason) {
    switch (reason) {
    case ComputerSocket::CloseReason::replaced:
        return {websocket::close_code{4000}, "replaced by a newer connection"};
    case ComputerSocket::CloseReason::revoked:
        return {websocket::close_code{4001}, "computer removed"};
    case ComputerSocket::CloseReason::goingAway:
        break;
    }
    return {websocket::close_code::going_away};
}

} // namespace

ComputerSocket::ComputerSocket(TlsStream&& stream, std::string computerId, ServiceCore& core,
                               ComputerConnections& connections)
    : socket_(std::move(stream)), computerId_(std::move(computerId)), core_(core), connections_(connections) {}

void ComputerSocket::start(UpgradeRequest request) {
    websocket::stream_base::timeout timeouts{};
    timeouts.handshake_timeout = std::chrono::seconds(30);
    timeouts.idle_timeout = std::chrono::seconds(60);
    timeouts.keep_alive_pings = true;
    socket_.set_option(timeouts);
    socket_.set_option(websocket::stream_base::decorator(
        [](websocket::response_type& response) { response.set(beast::http::field::server, "keyferry-service"); }));
    socket_.read_message_max(maxIncomingFrame);
    // Server frames go out unmasked straight from the outbox; a small staging buffer is all that is needed.
    socket_.write_buffer_bytes(512);
    upgrade_ = std::move(request);
    socket_.async_accept(*upgrade_, [self = shared_from_this()](beast::error_code error) { self->onAccept(error); });
}

void ComputerSocket::onAccept(beast::error_code error) {
    upgrade_.reset();
    if (error) {
        return;
    }
    open_ = true;
    connections_.add(shared_from_this());
    send(json{{"type", "connected"}}.dump());
    deliverNewTexts();
    readNext();
}

void ComputerSocket::deliverNewTexts() {
    if (!open_ || closing_) {
        return;
    }
    for (const ServiceCore::PendingText& text : core_.textsToDeliver(computerId_, lastSentSerial_)) {
        send(json{{"type", "insert_text"}, {"id", text.id}, {"text", text.text}}.dump());
        core_.markDelivered(computerId_, text.id);
        lastSentSerial_ = text.serial;
    }
}

void ComputerSocket::sendPhonesChanged() {
    if (open_ && !closing_) {
        send(json{{"type", "phones_changed"}}.dump());
    }
}

void ComputerSocket::close(CloseReason reason) {
    if (!open_ || closing_) {
        return;
    }
    closing_ = true;
    socket_.async_close(closeReasonOf(reason), [self = shared_from_this()](beast::error_code) {});
}

void ComputerSocket::readNext() {
    socket_.async_read_some(incoming_, readPiece, [self = shared_from_this()](beast::error_code error, std::size_t) {
        self->onRead(error);
    });
}

void ComputerSocket::onRead(beast::error_code error) {
    if (error) {
        end();
        return;
    }
    if (socket_.is_message_done()) {
        handleFrame();
        incoming_.consume(incoming_.size());
        incoming_.shrink_to_fit();
    }
    readNext();
}

void ComputerSocket::handleFrame() {
    const json frame = json::parse(beast::buffers_to_string(incoming_.data()), nullptr, false);
    if (!frame.is_object() || frame.value("type", json()) != "ack") {
        return;
    }
    const auto id = frame.find("id");
    if (id != frame.end() && id->is_string()) {
        core_.acknowledge(computerId_, id->get_ref<const std::string&>());
    }
}

void ComputerSocket::send(std::string frame) {
    outbox_.push_back(std::move(frame));
    if (!writing_) {
        writeNext();
    }
}

void ComputerSocket::writeNext() {
    if (outbox_.empty() || !open_) {
        writing_ = false;
        outbox_.shrink_to_fit();
        return;
    }
    writing_ = true;
    socket_.text(true);
    socket_.async_write(boost::asio::buffer(outbox_.front()),
                        [self = shared_from_this()](beast::error_code error, std::size_t) { self->onWrite(error); });
}

void ComputerSocket::onWrite(beast::error_code error) {
    outbox_.erase(outbox_.begin());
    if (error) {
        writing_ = false;
        outbox_.clear();
        return;
    }
    writeNext();
}

void ComputerSocket::end() {
    open_ = false;
    connections_.remove(computerId_, this);
}

} // namespace keyferry::service
