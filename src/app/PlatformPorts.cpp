#include "PlatformPorts.h"

#include <condition_variable>
#include <mutex>

namespace keyferry {

PlatformPorts::PlatformPorts(const QtTrust& trust)
    : queue("com.quillix.companion.connection"), http(queue, trust), webSockets(queue, trust),
      defaults(makeDefaultsStore()), secrets(makeSecretBackend()), typing(makeTyping()) {}

PlatformPorts::~PlatformPorts() {
    stopQueue();
}

void PlatformPorts::stopQueue() {
    queue.stop();
}

CompanionServicePorts PlatformPorts::ports() {
    return {queue, mainThread, clock, http, webSockets, *defaults, *secrets, *typing.poster, *typing.probe};
}

void PlatformPorts::finishQueuedWork(std::chrono::milliseconds limit) {
    auto state = std::make_shared<std::pair<std::mutex, std::condition_variable>>();
    auto done = std::make_shared<bool>(false);
    queue.post([state, done] {
        const std::lock_guard lock(state->first);
        *done = true;
        state->second.notify_all();
    });
    std::unique_lock lock(state->first);
    state->second.wait_for(lock, limit, [&done] { return *done; });
}

} // namespace keyferry
