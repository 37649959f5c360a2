#include "AppendedBytesWatcher.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <stdexcept>

namespace keyferry::service {

AppendedBytesWatcher::AppendedBytesWatcher(const std::filesystem::path& file)
    : inotify_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)), file_(open(file.c_str(), O_RDONLY | O_CLOEXEC)) {
    // The watch exists before the first read, so no write can fall between a read and the wait after it.
    if (inotify_ < 0 || file_ < 0 || inotify_add_watch(inotify_, file.c_str(), IN_MODIFY) < 0) {
        if (inotify_ >= 0) {
            close(inotify_);
        }
        if (file_ >= 0) {
            close(file_);
        }
        throw std::runtime_error("cannot watch " + file.string());
    }
    offset_ = lseek(file_, 0, SEEK_END);
}

AppendedBytesWatcher::~AppendedBytesWatcher() {
    close(inotify_);
    close(file_);
}

std::string AppendedBytesWatcher::waitFor(std::size_t count, std::chrono::steady_clock::time_point deadline) {
    std::string appended;
    readAppended(appended);
    while (appended.size() < count && std::chrono::steady_clock::now() < deadline) {
        waitForChange(deadline);
        readAppended(appended);
    }
    return appended;
}

void AppendedBytesWatcher::readAppended(std::string& into) {
    std::array<char, 4096> chunk{};
    for (;;) {
        const ssize_t read = pread(file_, chunk.data(), chunk.size(), offset_);
        if (read <= 0) {
            return;
        }
        into.append(chunk.data(), static_cast<std::size_t>(read));
        offset_ += read;
    }
}

void AppendedBytesWatcher::waitForChange(std::chrono::steady_clock::time_point deadline) const {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    pollfd watch{inotify_, POLLIN, 0};
    if (poll(&watch, 1, static_cast<int>(std::max<long>(0, left.count()))) > 0) {
        // The events only say "written"; what was written is read from the file itself.
        std::array<char, 4096> events{};
        while (read(inotify_, events.data(), events.size()) > 0) {
        }
    }
}

} // namespace keyferry::service
