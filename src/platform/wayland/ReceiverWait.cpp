#include "ReceiverWait.h"

#include <thread>

namespace keyferry {

ReceiverLook waitForReceiver(BacklogBrake& brake, const std::optional<CompositorBacklog>& backlog,
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
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

} // namespace keyferry
