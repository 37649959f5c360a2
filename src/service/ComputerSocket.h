#pragma once

#include "TlsStream.h"

#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/websocket/stream.hpp>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace keyferry::service {

class ComputerConnections;
class ServiceCore;

// One computer's WebSocket ("/v1/computers/connect"). After the upgrade it sends {"type":"connected"},
// then the texts not yet typed, in order, a few ahead of the acknowledgements ({"type":"ack","id"}, which
// it passes to the core), the rest fetched from storage as acknowledgements come back: a computer that
// reads nothing holds a few frames here, not its whole backlog. A text dropped from storage (its phone
// removed) before its frame is written is not sent. Protocol pings are answered by Beast; a silent peer
// is pinged and then dropped. Owned by its pending asynchronous operations (shared_from_this); borrows the
// core and the registry, which outlive it. Network thread only. Network errors end the socket quietly.
class ComputerSocket : public std::enable_shared_from_this<ComputerSocket> {
public:
    enum class CloseReason { replaced, revoked, goingAway };
    // Texts sent and not yet acknowledged; the others wait in storage until acknowledgements come back.
    static constexpr std::size_t textsAhead = 4;
    // How long a closing socket may take to send its close frame before it is cut off.
    static constexpr std::chrono::seconds closeGrace{1};
    using UpgradeRequest = boost::beast::http::request<boost::beast::http::string_body>;

    ComputerSocket(TlsStream&& stream, std::string computerId, ServiceCore& core, ComputerConnections& connections);

    // Completes the WebSocket handshake of `request` and starts the session.
    void start(UpgradeRequest request);
    void deliverNewTexts();
    void sendPhonesChanged();
    // Sends the close frame; a peer that has not taken it (and all sent before it) within closeGrace is cut off.
    void close(CloseReason reason);
    const std::string& computerId() const { return computerId_; }

private:
    // A frame waiting to go out; `textId` names the text of an insert_text frame, empty for the others.
    struct Outgoing {
        std::string frame;
        std::string textId;
    };

    void onAccept(boost::beast::error_code error);
    void readNext();
    void onRead(boost::beast::error_code error);
    void handleFrame();
    void acknowledged(const std::string& textId);
    void queueWaitingTexts();
    void send(Outgoing outgoing);
    void writeNext();
    bool dropWithdrawnText();
    void onWrite(boost::beast::error_code error);
    void cutOff();
    void end();

    boost::beast::websocket::stream<TlsStream> socket_;
    std::string computerId_;
    ServiceCore& core_;
    ComputerConnections& connections_;
    std::optional<UpgradeRequest> upgrade_;
    boost::beast::flat_buffer incoming_{32 * 1024}; // above the frame limit, so that Beast refuses first
    std::vector<Outgoing> outbox_;
    // The frame being written, kept apart from the outbox so that nothing moves it while the write reads it.
    std::string frameInWrite_;
    std::vector<std::string> textsInFlight_; // sent ahead, not yet acknowledged: at most textsAhead
    std::int64_t lastSentSerial_ = 0;
    bool open_ = false;
    bool writing_ = false;
    bool closing_ = false;
};

} // namespace keyferry::service
