#include "StoppedReceiver.h"

#include <signal.h>

#include <thread>

namespace keyferry {

std::optional<int> typeWhileReceiverStopped(pid_t receiver,
                                            const std::function<std::unique_ptr<HelperProcess>()>& startTyping,
                                            std::chrono::milliseconds pause) {
    if (kill(receiver, SIGSTOP) != 0) {
        return std::nullopt;
    }
    auto tool = startTyping();
    std::this_thread::sleep_for(pause); // how long the window reads nothing
    kill(receiver, SIGCONT);
    return tool->waitForExit(std::chrono::minutes(1));
}

} // namespace keyferry
