#pragma once

#include "Clock.h"

namespace keyferry {

// The system's wall clock. Stateless; any thread may read it.
class SystemClock : public Clock {
public:
    double now() const override;
};

} // namespace keyferry
