#pragma once

#include "TestHttpRequest.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QSslSocket>

#include <functional>
#include <optional>

namespace keyferry::testing {

// The server side of one WebSocket of the TLS test server. The framing is written out here, so that a test
// controls what a ready-made server would do by itself: answering pings, closing, oversized messages.
// Owned by the server (Qt parent), lives on the test's main thread, owns its socket.
class TestWebSocketPeer : public QObject {
public:
    TestWebSocketPeer(QSslSocket& socket, TestHttpRequest handshake, QObject& parent);

    const TestHttpRequest& handshake() const;
    QList<QByteArray> receivedTexts() const;
    QList<QByteArray> receivedBinaries() const;
    int pingsReceived() const;
    std::optional<int> closeCodeReceived() const;
    bool isDisconnected() const;

    void setAnswersPings(bool answers);
    void sendText(const QByteArray& text);
    void sendBinary(const QByteArray& data);
    // Starts the closing handshake with this code; the connection ends when the client has answered.
    void sendClose(int code);
    // Cuts the connection without a closing handshake.
    void drop();

    // Told each text message as it arrives (scripted conversations).
    std::function<void(const QByteArray&)> onText;

private:
    void readFrames();
    bool takeFrame();
    void handleMessage(int opcode, const QByteArray& payload);
    void handleClose(const QByteArray& payload);
    void writeFrame(int opcode, const QByteArray& payload);

    QSslSocket& socket_;
    const TestHttpRequest handshake_;
    QByteArray buffer_;
    QByteArray fragments_;
    int fragmentsOpcode_ = 0;
    QList<QByteArray> texts_;
    QList<QByteArray> binaries_;
    int pings_ = 0;
    bool answersPings_ = true;
    bool closeSent_ = false;
    std::optional<int> closeCodeReceived_;
    bool disconnected_ = false;
};

} // namespace keyferry::testing
