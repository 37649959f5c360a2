#pragma once

namespace keyferry {

// The few words that differ between the Apple build and the others: what the pairing request names the
// platform, and what user-visible texts call this computer. Each platform's folder of the core defines
// them (macos/ says "Mac" and "macos", linux/ says "computer" and "linux"); CMake builds one of the two.
extern const char* const platformName;
extern const char* const thisComputerWord;
extern const char* const computerRemovedText;

} // namespace keyferry
