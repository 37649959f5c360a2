#pragma once

namespace keyferry {

// The few words that differ between the Apple build and the others: what the pairing request names the
// platform, and what user-visible texts call this computer.
#if defined(__APPLE__)
inline constexpr const char* platformName = "macos";
inline constexpr const char* thisComputerWord = "Mac";
inline constexpr const char* computerRemovedText = "This Mac was removed from your paired computers.";
#else
inline constexpr const char* platformName = "linux";
inline constexpr const char* thisComputerWord = "computer";
inline constexpr const char* computerRemovedText = "This computer was removed from your paired computers.";
#endif

} // namespace keyferry
