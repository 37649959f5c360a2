#pragma once

#include "MainThread.h"

#include <QObject>

namespace keyferry {

// Hands work to the thread of the QCoreApplication's event loop. Made and destroyed on that thread, after
// the application object exists; posting from any thread is safe. Tasks run one at a time, in the order
// posted, always later (never inside post()); tasks still pending when it is destroyed are dropped.
class QtMainThread : public MainThread {
public:
    QtMainThread();

    void post(std::function<void()> task) override;

private:
    QObject context_;
};

} // namespace keyferry
