#include "RecordingMainThread.h"

#include <utility>

namespace keyferry::fakes {

void RecordingMainThread::post(std::function<void()> task) {
    tasks.push_back(std::move(task));
    ++posted;
}

std::size_t RecordingMainThread::drain() {
    std::size_t count = 0;
    while (!tasks.empty()) {
        auto task = std::move(tasks.front());
        tasks.pop_front();
        if (task) {
            task();
        }
        ++count;
    }
    return count;
}

} // namespace keyferry::fakes
