#include "ComputerSocket.h"

#include "CloseCodes.h"
#include "ComputerConnections.h"
#include "ServiceCore.h"
#include "SocketMessages.h"

#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/buffers_to_string.hpp>

#include <algorithm>
#include <chrono>

namespace keyferry::service {
namespace {

namespace beast = boost::beast;
namespace websocket = beast::websocket;

constexpr std::size_t maxIncomingFrame = 16 * 1024;
// What a pending read reserves. Acknowledgements fit; a longer frame simply arrives in several pieces.
constexpr std::size_t readPiece = 256;

websocket::close_reason closeReasonOf(ComputerSocket::CloseReason reason) {
    switch (reason) {
    case ComputerSocket::CloseReason::replaced:
        return {websocket::close_code{CloseCodes::replaced}, "replaced by a newer connection"};
    case ComputerSocket::CloseReason::revoked:
        return {websocket::close_code{CloseCodes::computerRemoved}, "computer removed"};
    case ComputerSocket::CloseReason::goingAway:
        break;
    }
    return {websocket::close_code{CloseCodes::goingAway}};
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
    // Server frames go out unmasked straight from the frame in write; a small staging buffer is all that is needed.
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
    send({ServerMessage::connected().encode(), {}});
    deliverNewTexts();
    readNext();
}

void ComputerSocket::deliverNewTexts() {
    queueWaitingTexts();
    if (!writing_) {
        writeNext();
    }
}

void ComputerSocket::queueWaitingTexts() {
    if (!open_ || closing_ || textsInFlight_.size() >= textsAhead) {
        return;
    }
    const auto room = static_cast<int>(textsAhead - textsInFlight_.size());
    for (ServiceCore::PendingText& text : core_.textsToDeliver(computerId_, lastSentSerial_, room)) {
        core_.markDelivered(computerId_, text.id);
        lastSentSerial_ = text.serial;
        textsInFlight_.push_back(text.id);
        outbox_.push_back({ServerMessage::insertText(text.id, std::move(text.text)).encode(), std::move(text.id)});
    }
}

void ComputerSocket::sendPhonesChanged() {
    const std::string frame = ServerMessage::phonesChanged().encode();
    // One waiting notice says it all; a peer that reads nothing does not pile them up.
    const bool alreadyWaiting =
        std::any_of(outbox_.begin(), outbox_.end(), [&](const Outgoing& outgoing) { return outgoing.frame == frame; });
    if (open_ && !closing_ && !alreadyWaiting) {
        send({frame, {}});
    }
}

void ComputerSocket::close(CloseReason reason) {
    if (!open_ || closing_) {
        return;
    }
    closing_ = true;
    outbox_ = {};
    // Beast sends the close frame once the write in progress is done; a peer that reads nothing would keep
    // both (and this socket) waiting until the idle time-out, so it is cut off instead.
    auto grace = std::make_shared<boost::asio::steady_timer>(socket_.get_executor(), closeGrace);
    grace->async_wait([weak = weak_from_this()](beast::error_code error) {
        const auto self = weak.lock();
        if (self && !error) {
            self->cutOff();
        }
    });
    socket_.async_close(closeReasonOf(reason),
                        [self = shared_from_this(), grace](beast::error_code) { grace->cancel(); });
}

// Ends the connection now: pending operations fail at once, and once the socket is destroyed the kernel
// resets the connection and drops what the peer did not take (linger 0). The descriptor itself stays open
// until then, so no new connection can get its number while an operation on it may still run.
void ComputerSocket::cutOff() {
    auto& tcp = socket_.next_layer().socket();
    beast::error_code ignored;
    tcp.set_option(boost::asio::socket_base::linger(true, 0), ignored);
    tcp.shutdown(boost::asio::ip::tcp::socket::shutdown_both, ignored);
    tcp.cancel(ignored);
}

void ComputerSocket::readNext() {
    socket_.async_read_some(incoming_, readPiece,
                            [self = shared_from_this()](beast::error_code error, std::size_t) { self->onRead(error); });
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
    const auto reply = SocketReply::decode(beast::buffers_to_string(incoming_.data()));
    if (reply && reply->type == MessageType::ack && reply->id) {
        acknowledged(*reply->id);
    }
}

void ComputerSocket::acknowledged(const std::string& textId) {
    core_.acknowledge(computerId_, textId);
    std::erase(textsInFlight_, textId);
    deliverNewTexts();
}

void ComputerSocket::send(Outgoing outgoing) {
    outbox_.push_back(std::move(outgoing));
    if (!writing_) {
        writeNext();
    }
}

void ComputerSocket::writeNext() {
    while (dropWithdrawnText()) {
        queueWaitingTexts();
    }
    if (outbox_.empty() || !open_ || closing_) {
        writing_ = false;
        outbox_ = {};
        return;
    }
    writing_ = true;
    frameInWrite_ = std::move(outbox_.front().frame);
    outbox_.erase(outbox_.begin());
    socket_.text(true);
    socket_.async_write(boost::asio::buffer(frameInWrite_),
                        [self = shared_from_this()](beast::error_code error, std::size_t) { self->onWrite(error); });
}

// A text whose phone was removed since it was queued is not sent; its place ahead goes to the next one.
bool ComputerSocket::dropWithdrawnText() {
    if (outbox_.empty() || outbox_.front().textId.empty() || core_.isWaiting(computerId_, outbox_.front().textId)) {
        return false;
    }
    std::erase(textsInFlight_, outbox_.front().textId);
    outbox_.erase(outbox_.begin());
    return true;
}

void ComputerSocket::onWrite(beast::error_code error) {
    frameInWrite_ = std::string();
    if (error) {
        writing_ = false;
        outbox_ = {};
        return;
    }
    writeNext();
}

void ComputerSocket::end() {
    open_ = false;
    connections_.remove(computerId_, this);
}

} // namespace keyferry::service
