#pragma once

#include "HelperProcess.h"

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

namespace keyferry {

// Starts typing (`startTyping` starts the typing tool) while the receiving window's process reads nothing for
// `pause` (stopped with SIGSTOP, then continued), as a busy window would; the tool's exit status, or none when
// it did not end within a minute. The receiver is continued whatever happens.
std::optional<int> typeWhileReceiverStopped(pid_t receiver,
                                            const std::function<std::unique_ptr<HelperProcess>()>& startTyping,
                                            std::chrono::milliseconds pause);

} // namespace keyferry
