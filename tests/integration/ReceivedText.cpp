#include "ReceivedText.h"

#include "Wait.h"

#include <fstream>
#include <sstream>

namespace keyferry {

std::string fileContents(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream contents;
    contents << file.rdbuf();
    return contents.str();
}

std::string receivedText(const std::filesystem::path& path, std::size_t bytes, std::chrono::milliseconds quiet) {
    const auto size = [&path] {
        std::error_code missing;
        const std::uintmax_t now = std::filesystem::file_size(path, missing);
        return missing ? std::uintmax_t{0} : now;
    };
    testing::waitUntilSteady(size, std::uintmax_t{bytes}, quiet);
    // Anything typed beyond the expected text shows up as a difference when it comes within a moment.
    testing::waitUntil([&] { return size() > bytes; }, std::chrono::milliseconds(100));
    return fileContents(path);
}

} // namespace keyferry
