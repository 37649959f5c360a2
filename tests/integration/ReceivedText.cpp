#include "ReceivedText.h"

#include <fstream>
#include <sstream>
#include <thread>

namespace keyferry {

std::string fileContents(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream contents;
    contents << file.rdbuf();
    return contents.str();
}

std::string receivedText(const std::filesystem::path& path, std::size_t bytes, std::chrono::milliseconds quiet) {
    using namespace std::chrono_literals;
    std::size_t lastSize = 0;
    auto lastGrowth = std::chrono::steady_clock::now();
    while (std::chrono::steady_clock::now() - lastGrowth < quiet) {
        std::error_code error;
        const std::size_t size = std::filesystem::file_size(path, error);
        if (!error && size >= bytes) {
            break;
        }
        if (!error && size != lastSize) {
            lastSize = size;
            lastGrowth = std::chrono::steady_clock::now();
        }
        std::this_thread::sleep_for(20ms);
    }
    std::this_thread::sleep_for(100ms);
    return fileContents(path);
}

} // namespace keyferry
