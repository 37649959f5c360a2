#include "ProcessFootprint.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

namespace keyferry::bench {
namespace {

std::string procPath(pid_t pid, const std::string& name) {
    return "/proc/" + std::to_string(pid) + "/" + name;
}

// The number after "Key:" in a "Key:   value kB" file such as status or smaps_rollup.
long fieldOf(const std::string& file, const std::string& key) {
    std::ifstream in(file);
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind(key + ":", 0) == 0) {
            return std::stol(line.substr(key.size() + 1));
        }
    }
    return 0;
}

std::set<std::string> socketInodesOf(pid_t pid) {
    std::set<std::string> inodes;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(procPath(pid, "fd"), error)) {
        const std::string target = std::filesystem::read_symlink(entry.path(), error).string();
        if (target.rfind("socket:[", 0) == 0) {
            inodes.insert(target.substr(8, target.size() - 9));
        }
    }
    return inodes;
}

// A smaps header line ("start-end perms offset dev inode [path]") gives its path; other lines do not.
bool mappingHeader(const std::string& line, std::string& path) {
    std::istringstream fields(line);
    std::string range, perms, offset, device, inode;
    if (!(fields >> range >> perms >> offset >> device >> inode) || range.find('-') == std::string::npos ||
        line.find(':') < range.size()) {
        return false;
    }
    std::getline(fields >> std::ws, path);
    if (path.empty()) {
        path = "[anon]";
    }
    return true;
}

} // namespace

Memory memoryOf(pid_t pid) {
    return Memory{fieldOf(procPath(pid, "status"), "VmRSS"), fieldOf(procPath(pid, "smaps_rollup"), "Pss")};
}

double cpuSecondsOf(pid_t pid) {
    std::ifstream in(procPath(pid, "stat"));
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const auto afterName = text.rfind(')');
    if (afterName == std::string::npos) {
        return 0;
    }
    std::istringstream fields(text.substr(afterName + 2));
    std::string skipped;
    for (int field = 3; field < 14; ++field) { // state .. cmajflt
        fields >> skipped;
    }
    long user = 0, system = 0;
    fields >> user >> system;
    return double(user + system) / double(sysconf(_SC_CLK_TCK));
}

int threadsOf(pid_t pid) {
    return int(fieldOf(procPath(pid, "status"), "Threads"));
}

std::vector<std::pair<std::string, long>> pssByMapping(pid_t pid) {
    std::map<std::string, long> byPath;
    std::ifstream in(procPath(pid, "smaps"));
    std::string line, path;
    while (std::getline(in, line)) {
        if (line.rfind("Pss:", 0) == 0) {
            byPath[path] += std::stol(line.substr(4));
        } else if (!line.empty() && std::isxdigit(static_cast<unsigned char>(line.front()))) {
            mappingHeader(line, path);
        }
    }
    std::vector<std::pair<std::string, long>> sorted(byPath.begin(), byPath.end());
    std::sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) { return a.second > b.second; });
    return sorted;
}

bool connectedTo(pid_t pid, unsigned short remotePort) {
    const auto inodes = socketInodesOf(pid);
    std::ifstream in(procPath(pid, "net/tcp"));
    std::string line;
    std::getline(in, line); // the column titles
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        std::string slot, local, remote, state, queues, timer, retransmits, uid, timeout, inode;
        fields >> slot >> local >> remote >> state >> queues >> timer >> retransmits >> uid >> timeout >> inode;
        const auto colon = remote.find(':');
        const bool toPort =
            colon != std::string::npos && std::stoul(remote.substr(colon + 1), nullptr, 16) == remotePort;
        if (toPort && state == "01" && inodes.count(inode) > 0) {
            return true;
        }
    }
    return false;
}

} // namespace keyferry::bench
