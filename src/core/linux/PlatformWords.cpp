#include "PlatformWords.h"

namespace keyferry {

const char* const platformName = "linux";
const char* const thisComputerWord = "computer";
const char* const computerRemovedText = "This computer was removed from your paired computers.";

} // namespace keyferry
