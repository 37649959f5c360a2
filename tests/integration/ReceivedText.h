#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <string>

namespace keyferry {

// The whole content of a file (empty when it does not exist).
std::string fileContents(const std::filesystem::path& path);

// What a receiving client recorded in `path`, once it holds at least `bytes` or has not grown for `quiet`;
// read a moment later, so that anything beyond the expected text shows up as a difference.
std::string receivedText(const std::filesystem::path& path, std::size_t bytes,
                         std::chrono::milliseconds quiet = std::chrono::seconds(5));

} // namespace keyferry
