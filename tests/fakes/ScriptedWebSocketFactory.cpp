#include "ScriptedWebSocketFactory.h"

#include <stdexcept>

namespace keyferry::fakes {

std::shared_ptr<WebSocketTask> ScriptedWebSocketFactory::makeTask(const WebSocketRequest& request) {
    made.push_back(std::make_shared<ScriptedWebSocketTask>(request));
    return made.back();
}

std::vector<WebSocketRequest> ScriptedWebSocketFactory::requests() const {
    std::vector<WebSocketRequest> all;
    all.reserve(made.size());
    for (const auto& task : made) {
        all.push_back(task->request());
    }
    return all;
}

ScriptedWebSocketTask& ScriptedWebSocketFactory::lastTask() const {
    if (made.empty()) {
        throw std::logic_error("no WebSocket task was made");
    }
    return *made.back();
}

ScriptedWebSocketTask& ScriptedWebSocketFactory::task(std::size_t index) const {
    if (index >= made.size()) {
        throw std::logic_error("no such WebSocket task");
    }
    return *made[index];
}

} // namespace keyferry::fakes
