#pragma once

#include "QtEventPause.h"

#include <QCoreApplication>
#include <QMetaObject>

#include <chrono>
#include <mutex>
#include <vector>

namespace keyferry::testing {

// Values handed over from another thread (adapter completions) to the test's main thread, which waits for
// them while running its event loop.
template <typename T> class TestMailbox {
public:
    void put(T value) {
        const std::scoped_lock lock(mutex_);
        values_.push_back(std::move(value));
        // Wakes the main thread's event loop if it is waiting.
        QMetaObject::invokeMethod(
            QCoreApplication::instance(), [] {}, Qt::QueuedConnection);
    }

    std::vector<T> values() const {
        const std::scoped_lock lock(mutex_);
        return values_;
    }

    std::size_t size() const {
        const std::scoped_lock lock(mutex_);
        return values_.size();
    }

    // Runs the main event loop until `count` values have arrived or `limit` has passed.
    bool waitFor(std::size_t count, std::chrono::milliseconds limit = std::chrono::seconds(10)) const {
        return processEventsUntil([&] { return size() >= count; }, limit);
    }

private:
    mutable std::mutex mutex_;
    std::vector<T> values_;
};

} // namespace keyferry::testing
