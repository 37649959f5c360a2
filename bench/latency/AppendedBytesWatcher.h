#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <string>
#include <sys/types.h>

namespace keyferry::service {

// Follows a file another process appends to (the receiving window's record of what it was typed) and waits
// for new bytes woken by inotify, so that the moment the last byte lands is seen within microseconds instead
// of a polling period. Owns its two descriptors; single-threaded, owned by the benchmark. Throws
// std::runtime_error when the file or inotify cannot be opened.
class AppendedBytesWatcher {
public:
    explicit AppendedBytesWatcher(const std::filesystem::path& file);
    ~AppendedBytesWatcher();
    AppendedBytesWatcher(const AppendedBytesWatcher&) = delete;
    AppendedBytesWatcher& operator=(const AppendedBytesWatcher&) = delete;

    // The bytes appended since the previous call, returned as soon as there are at least `count` of them,
    // or whatever came by the deadline.
    std::string waitFor(std::size_t count, std::chrono::steady_clock::time_point deadline);

private:
    void readAppended(std::string& into);
    void waitForChange(std::chrono::steady_clock::time_point deadline) const;

    int inotify_ = -1;
    int file_ = -1;
    off_t offset_ = 0;
};

} // namespace keyferry::service
