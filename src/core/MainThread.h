#pragma once

#include <functional>

namespace keyferry {

// Hands work to the application's main thread. Owned by the application (or a test); it must outlive
// the service. Any thread may post; tasks run later, always asynchronously (even when posted from the
// main thread), one at a time, in the order posted. Posting never fails.
class MainThread {
public:
    virtual ~MainThread() = default;

    virtual void post(std::function<void()> task) = 0;
};

} // namespace keyferry
