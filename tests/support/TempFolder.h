#pragma once

#include <filesystem>
#include <string>

namespace keyferry {

// A fresh folder of its own under the system's temporary folder (TMPDIR), for whatever a test writes (data
// folders, homes, sockets, received texts). Removed with everything in it on destruction. Throws
// std::runtime_error when it cannot be made. Not thread-safe.
class TempFolder {
public:
    // `prefix` starts the folder's name, so that a folder left by a killed test says whose it was.
    explicit TempFolder(const std::string& prefix = "keyferry-test");
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }
    // A path inside the folder (nothing is made there).
    std::filesystem::path operator/(const std::filesystem::path& name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

} // namespace keyferry
