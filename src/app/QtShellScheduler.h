#pragma once

#include "ShellScheduler.h"

#include <QObject>

namespace keyferry {

// The shell's delayed work on Qt timers of the main event loop. Tasks still pending when the scheduler is
// destroyed never run.
class QtShellScheduler : public ShellScheduler {
public:
    QtShellScheduler();
    ~QtShellScheduler() override;

    void after(double seconds, std::function<void()> task) override;
    std::shared_ptr<ShellTimer> repeating(double interval, std::function<void()> tick) override;

private:
    QObject context;
};

} // namespace keyferry
