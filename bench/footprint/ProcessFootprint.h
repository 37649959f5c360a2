#pragma once

#include <sys/types.h>

#include <string>
#include <utility>
#include <vector>

namespace keyferry::bench {

// What a running process holds and has spent, read from /proc. Every reader returns zeros (or nothing) for
// a process that has gone.
struct Memory {
    long rssKb = 0; // VmRSS of /proc/PID/status
    long pssKb = 0; // Pss of /proc/PID/smaps_rollup
};

Memory memoryOf(pid_t pid);
// User plus system CPU time the process has used so far.
double cpuSecondsOf(pid_t pid);
int threadsOf(pid_t pid);
// Proportional set size by mapped file ("[anon]" for anonymous memory, "[heap]", ...), largest first.
std::vector<std::pair<std::string, long>> pssByMapping(pid_t pid);
// Whether the process holds an established TCP connection to this remote port.
bool connectedTo(pid_t pid, unsigned short remotePort);

} // namespace keyferry::bench
