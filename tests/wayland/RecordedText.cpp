#include "RecordedText.h"

#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

namespace keyferry {

using namespace std::chrono_literals;

std::string fileContents(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::string recordedText(const std::filesystem::path& path, std::size_t bytes) {
    std::uintmax_t size = 0;
    auto grew = std::chrono::steady_clock::now();
    while (size < bytes && std::chrono::steady_clock::now() - grew < 3s) {
        std::this_thread::sleep_for(20ms);
        std::error_code missing;
        const auto now = std::filesystem::file_size(path, missing);
        if (!missing && now != size) {
            size = now;
            grew = std::chrono::steady_clock::now();
        }
    }
    std::this_thread::sleep_for(100ms);
    return fileContents(path);
}

} // namespace keyferry
