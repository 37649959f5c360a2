#pragma once

#include <optional>
#include <string_view>
#include <sys/types.h>

namespace keyferry {

// Whether a program understands the input method's Unicode entry (Control+Shift+U, hex digits, space), judged
// from the libraries it has loaded (the text of its /proc/PID/maps). GTK understands it with or without an
// input method; Qt only through an input method (IBus, fcitx), which it loads as a plugin from its
// `platforminputcontexts` folder, the compose plugin aside. False only for a Qt program without such a plugin,
// which would take the entry's hex digits as text; nullopt when the libraries tell neither (another toolkit).
std::optional<bool> takesUnicodeEntry(std::string_view loadedLibraries);

// The same for a running process; nullopt when its libraries cannot be read (gone, another user's).
std::optional<bool> processTakesUnicodeEntry(pid_t process);

} // namespace keyferry
