#pragma once

#include <set>
#include <string>

namespace keyferry {

// The interface names the compositor of this session (WAYLAND_DISPLAY) advertises, through a short
// connection of its own; empty when no compositor can be reached. Callable from any thread; never fails.
std::set<std::string> advertisedWaylandGlobals();

} // namespace keyferry
