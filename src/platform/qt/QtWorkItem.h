#pragma once

#include "SerialQueue.h"

#include <atomic>

namespace keyferry {

// The cancellation flag of one delayed task of a QtSerialQueue. Shared by the caller and the scheduled
// task; safe to cancel from any thread (the port only asks for the queue's thread).
class QtWorkItem : public WorkItem {
public:
    void cancel() override;
    bool isCancelled() const override;

private:
    std::atomic<bool> cancelled_{false};
};

} // namespace keyferry
