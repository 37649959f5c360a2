#pragma once

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#include "Wait.h"

#include <algorithm>
#include <chrono>

namespace keyferry::testing {

// A pause of waitUntil() for tests whose peers report through the main thread's Qt event loop: runs that
// loop until an event arrives (a queued call wakes it at once) or 20 ms have passed, never past the deadline.
struct QtEventPause {
    void operator()(std::chrono::milliseconds left) const {
        QTimer wakeUp;
        wakeUp.setSingleShot(true);
        wakeUp.start(std::min(left, std::chrono::milliseconds(20)));
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
};

// waitUntil() running the main thread's event loop between checks.
template <typename Condition>
bool processEventsUntil(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    return waitUntil(condition, limit, QtEventPause{});
}

} // namespace keyferry::testing
