#include "ReceiverWait.h"

#include <thread>

namespace keyferry {

namespace {

// How often a receiving window that is behind is looked at again. It is behind by more than half a send
// buffer, many batches of keys, so it has work for far longer than this; each look costs CPU time that a
// busy machine would otherwise give that window.
constexpr std::chrono::milliseconds behindLookInterval(10);

} // namespace

ReceiverLook waitForReceiver(BacklogBrake& brake, std::optional<CompositorBacklog>& backlog,
                             std::chrono::steady_clock::duration patience) {
    auto deadline = std::chrono::steady_clock::now() + patience;
    std::uint64_t lastExcess = 0;
    for (;;) {
        const auto connections = backlog ? backlog->sample() : std::nullopt;
        const std::uint64_t excess = connections ? brake.excess(*connections) : 0;
        if (excess == 0) {
            return {true, connections.has_value()};
        }
        if (lastExcess != 0 && excess < lastExcess) {
            deadline = std::chrono::steady_clock::now() + patience;
        }
        if (std::chrono::steady_clock::now() > deadline) {
            return {false, true};
        }
        lastExcess = excess;
        std::this_thread::sleep_for(behindLookInterval);
    }
}

} // namespace keyferry
