#pragma once

#include <X11/Xlib.h>

#include <atomic>

namespace keyferry {

// Xlib reports protocol errors and broken connections through process-wide handlers whose defaults end the
// process. Keyferry's X connections install these once instead: protocol errors are only counted, and a
// broken connection only raises its owner's flag, so both turn into failed calls. Callable from any thread.
void installXlibErrorHandlers();

// How many protocol errors any connection of this process has received so far.
int xlibProtocolErrors();

// From now on a loss of `display` sets `lost` (which must outlive the connection) instead of ending the process.
void reportConnectionLoss(Display* display, std::atomic<bool>& lost);

} // namespace keyferry
