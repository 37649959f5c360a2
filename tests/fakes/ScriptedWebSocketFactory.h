#pragma once

#include "ScriptedWebSocketTask.h"
#include "WebSocketTask.h"

#include <cstddef>
#include <memory>
#include <vector>

namespace keyferry::fakes {

// Makes ScriptedWebSocketTasks and keeps every request and task it made, oldest first, so that the test
// can play each socket. Single-threaded.
class ScriptedWebSocketFactory : public WebSocketFactory {
public:
    std::shared_ptr<WebSocketTask> makeTask(const WebSocketRequest& request) override;

    const std::vector<std::shared_ptr<ScriptedWebSocketTask>>& tasks() const { return made; }
    std::vector<WebSocketRequest> requests() const;
    std::size_t taskCount() const { return made.size(); }

    // The most recent task; throws std::logic_error when none was made.
    ScriptedWebSocketTask& lastTask() const;
    ScriptedWebSocketTask& task(std::size_t index) const;

private:
    std::vector<std::shared_ptr<ScriptedWebSocketTask>> made;
};

} // namespace keyferry::fakes
