#include "TestWebSocketPeer.h"

#include <QtEndian>

namespace keyferry::testing {

namespace {

enum Opcode { continuation = 0x0, text = 0x1, binary = 0x2, close = 0x8, ping = 0x9, pong = 0xA };

} // namespace

TestWebSocketPeer::TestWebSocketPeer(QSslSocket& socket, TestHttpRequest handshake, QObject& parent)
    : QObject(&parent), socket_(socket), handshake_(std::move(handshake)) {
    socket_.setParent(this);
    connect(&socket_, &QSslSocket::readyRead, this, &TestWebSocketPeer::readFrames);
    connect(&socket_, &QSslSocket::disconnected, this, [this] { disconnected_ = true; });
}

const TestHttpRequest& TestWebSocketPeer::handshake() const {
    return handshake_;
}

QList<QByteArray> TestWebSocketPeer::receivedTexts() const {
    return texts_;
}

QList<QByteArray> TestWebSocketPeer::receivedBinaries() const {
    return binaries_;
}

int TestWebSocketPeer::pingsReceived() const {
    return pings_;
}

std::optional<int> TestWebSocketPeer::closeCodeReceived() const {
    return closeCodeReceived_;
}

bool TestWebSocketPeer::isDisconnected() const {
    return disconnected_;
}

void TestWebSocketPeer::setAnswersPings(bool answers) {
    answersPings_ = answers;
}

void TestWebSocketPeer::sendText(const QByteArray& message) {
    writeFrame(text, message);
}

void TestWebSocketPeer::sendBinary(const QByteArray& data) {
    writeFrame(binary, data);
}

void TestWebSocketPeer::sendClose(int code) {
    QByteArray payload(2, '\0');
    qToBigEndian(static_cast<quint16>(code), payload.data());
    writeFrame(close, payload);
    closeSent_ = true;
}

void TestWebSocketPeer::drop() {
    socket_.abort();
    disconnected_ = true;
}

void TestWebSocketPeer::readFrames() {
    buffer_ += socket_.readAll();
    while (takeFrame()) {
    }
}

// Takes one complete client frame off the buffer (client frames are always masked).
bool TestWebSocketPeer::takeFrame() {
    if (buffer_.size() < 2) {
        return false;
    }
    const auto* bytes = reinterpret_cast<const uchar*>(buffer_.constData());
    const bool final = bytes[0] & 0x80;
    const int opcode = bytes[0] & 0x0F;
    qsizetype offset = 2;
    quint64 length = bytes[1] & 0x7F;
    if (length == 126) {
        if (buffer_.size() < 4) {
            return false;
        }
        length = qFromBigEndian<quint16>(bytes + 2);
        offset = 4;
    } else if (length == 127) {
        if (buffer_.size() < 10) {
            return false;
        }
        length = qFromBigEndian<quint64>(bytes + 2);
        offset = 10;
    }
    const bool masked = bytes[1] & 0x80;
    const qsizetype maskOffset = offset;
    offset += masked ? 4 : 0;
    if (static_cast<quint64>(buffer_.size() - offset) < length) {
        return false;
    }
    QByteArray payload = buffer_.mid(offset, static_cast<qsizetype>(length));
    for (qsizetype i = 0; masked && i < payload.size(); ++i) {
        payload[i] = static_cast<char>(payload[i] ^ buffer_[maskOffset + i % 4]);
    }
    buffer_.remove(0, offset + static_cast<qsizetype>(length));
    if (opcode == continuation || !final) {
        fragmentsOpcode_ = opcode == continuation ? fragmentsOpcode_ : opcode;
        fragments_ += payload;
        if (final) {
            handleMessage(fragmentsOpcode_, std::exchange(fragments_, {}));
        }
    } else {
        handleMessage(opcode, payload);
    }
    return true;
}

void TestWebSocketPeer::handleMessage(int opcode, const QByteArray& payload) {
    switch (opcode) {
    case text:
        texts_.append(payload);
        if (onText) {
            onText(payload);
        }
        break;
    case binary:
        binaries_.append(payload);
        break;
    case ping:
        ++pings_;
        if (answersPings_) {
            writeFrame(pong, payload);
        }
        break;
    case close:
        handleClose(payload);
        break;
    default:
        break;
    }
}

void TestWebSocketPeer::handleClose(const QByteArray& payload) {
    closeCodeReceived_ = payload.size() >= 2 ? qFromBigEndian<quint16>(payload.constData()) : 1005;
    if (!closeSent_) {
        writeFrame(close, payload.left(2));
        closeSent_ = true;
    }
    socket_.disconnectFromHost();
}

void TestWebSocketPeer::writeFrame(int opcode, const QByteArray& payload) {
    QByteArray frame;
    frame.append(static_cast<char>(0x80 | opcode));
    const auto length = static_cast<quint64>(payload.size());
    if (length < 126) {
        frame.append(static_cast<char>(length));
    } else if (length <= 0xFFFF) {
        frame.append(static_cast<char>(126));
        QByteArray extended(2, '\0');
        qToBigEndian(static_cast<quint16>(length), extended.data());
        frame += extended;
    } else {
        frame.append(static_cast<char>(127));
        QByteArray extended(8, '\0');
        qToBigEndian(length, extended.data());
        frame += extended;
    }
    socket_.write(frame + payload);
}

} // namespace keyferry::testing
