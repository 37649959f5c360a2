#pragma once

#include <filesystem>

namespace keyferry::service {

// A fresh folder under the system's temporary folder, removed with everything in it on destruction.
class TempFolder {
public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

} // namespace keyferry::service
