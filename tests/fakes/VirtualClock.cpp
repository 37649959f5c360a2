#include "VirtualClock.h"

#include "ManualSerialQueue.h"

#include <algorithm>
#include <stdexcept>

namespace keyferry::fakes {

double VirtualClock::now() const {
    return static_cast<double>(nanoseconds) / 1e9;
}

void VirtualClock::attach(ManualSerialQueue& queue) {
    queues.push_back(&queue);
}

void VirtualClock::detach(ManualSerialQueue& queue) {
    std::erase(queues, &queue);
}

std::size_t VirtualClock::advance(double seconds) {
    if (std::ranges::any_of(queues, [](const ManualSerialQueue* queue) { return queue->isCurrent(); })) {
        throw std::logic_error("VirtualClock advanced from inside a queue's work");
    }
    const std::int64_t end = nanoseconds + ManualSerialQueue::toNanoseconds(seconds);
    std::size_t count = 0;
    while (true) {
        ManualSerialQueue* earliest = nullptr;
        std::optional<ManualSerialQueue::Key> earliestKey;
        for (ManualSerialQueue* queue : queues) {
            const auto key = queue->firstLiveDueBy(end);
            if (key && (!earliestKey || *key < *earliestKey)) {
                earliest = queue;
                earliestKey = key;
            }
        }
        if (earliest == nullptr) {
            break;
        }
        nanoseconds = std::max(nanoseconds, earliestKey->first);
        earliest->runKey(*earliestKey);
        ++count;
    }
    nanoseconds = end;
    return count;
}

} // namespace keyferry::fakes
