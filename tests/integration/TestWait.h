#pragma once

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QTimer>

#include <chrono>

namespace keyferry::testing {

// Runs the main thread's event loop until `condition` holds or `limit` has passed; true when it holds.
// The loop wakes for every event (a TestMailbox posts one with each value), and at least every 20 ms.
template <typename Condition>
bool waitUntil(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    const QDeadlineTimer deadline(limit);
    QTimer heartbeat;
    heartbeat.start(std::chrono::milliseconds(20));
    while (!condition() && !deadline.hasExpired()) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return condition();
}

} // namespace keyferry::testing
