#include "PlatformWords.h"

namespace keyferry {

const char* const platformName = "macos";
const char* const thisComputerWord = "Mac";
const char* const computerRemovedText = "This Mac was removed from your paired computers.";

} // namespace keyferry
