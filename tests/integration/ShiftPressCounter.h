#pragma once

#include <cstddef>

struct _XDisplay;

namespace keyferry {

// Counts the presses of the Shift keys on DISPLAY from any keyboard, typed ones included (raw key events of
// the X input extension): every one is a key a receiving window has to handle besides the text's own.
// Owned by a test or benchmark; opens its own connection at construction (throws std::runtime_error when
// there is no display with the X input extension 2.0) and closes it at destruction.
class ShiftPressCounter {
public:
    ShiftPressCounter();
    ~ShiftPressCounter();
    ShiftPressCounter(const ShiftPressCounter&) = delete;
    ShiftPressCounter& operator=(const ShiftPressCounter&) = delete;

    // The presses since construction, up to every event the server has handled by now.
    std::size_t count();

private:
    _XDisplay* display = nullptr;
    int inputOpcode = 0;
    unsigned leftShift = 0;
    unsigned rightShift = 0;
    std::size_t seen = 0;
};

} // namespace keyferry
