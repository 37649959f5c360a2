#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

namespace keyferry {

// What a receiver recorded in its file: waits until the file holds `bytes` or stops growing for three
// seconds, then a little longer, so that anything beyond the expected text shows up too.
std::string recordedText(const std::filesystem::path& path, std::size_t bytes);

// The whole file as it is now.
std::string fileContents(const std::filesystem::path& path);

} // namespace keyferry
