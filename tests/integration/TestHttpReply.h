#pragma once

#include <QByteArray>
#include <QList>
#include <QPair>

#include <chrono>

namespace keyferry::testing {

// A scripted answer of the TLS test server.
struct TestHttpReply {
    int status = 200;
    QByteArray body;
    QList<QPair<QByteArray, QByteArray>> headers;
    // When set, the body is sent one byte at a time at this interval (a slow but living transfer).
    std::chrono::milliseconds trickleInterval{0};

    static TestHttpReply json(int status, const QByteArray& body) {
        return {status, body, {{"Content-Type", "application/json"}}, {}};
    }
};

} // namespace keyferry::testing
