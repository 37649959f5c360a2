#include "ServiceProcess.h"

#include <chrono>
#include <csignal>
#include <cstring>
#include <poll.h>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace keyferry::service {
namespace {

// Reads the first line the child writes, waiting at most `timeoutMs`.
std::string readFirstLine(int descriptor, int timeoutMs) {
    std::string line;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (line.find('\n') == std::string::npos) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd ready{descriptor, POLLIN, 0};
        if (left.count() <= 0 || poll(&ready, 1, static_cast<int>(left.count())) <= 0) {
            break;
        }
        char chunk[256];
        const ssize_t size = read(descriptor, chunk, sizeof chunk);
        if (size <= 0) {
            break;
        }
        line.append(chunk, static_cast<std::size_t>(size));
    }
    return line;
}

} // namespace

ServiceProcess::ServiceProcess(const std::filesystem::path& program, const std::filesystem::path& dataFolder,
                               const std::vector<std::string>& extraArguments) {
    int output[2];
    if (pipe(output) != 0) {
        throw std::runtime_error("pipe failed");
    }
    std::vector<std::string> arguments{program.string(), "--listen", "127.0.0.1:0", "--data", dataFolder.string()};
    arguments.insert(arguments.end(), extraArguments.begin(), extraArguments.end());
    pid_ = fork();
    if (pid_ == 0) {
        dup2(output[1], STDOUT_FILENO);
        close(output[0]);
        close(output[1]);
        std::vector<char*> argv;
        for (std::string& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(output[1]);
    const std::string line = readFirstLine(output[0], 20'000);
    close(output[0]);
    const auto listening = line.find("127.0.0.1:");
    const auto semicolon = line.find(';');
    if (pid_ < 0 || listening == std::string::npos || semicolon == std::string::npos) {
        stop(SIGKILL);
        throw std::runtime_error("keyferry-service did not start: " + line);
    }
    port_ = static_cast<unsigned short>(std::stoi(line.substr(listening + 10, semicolon - listening - 10)));
    authority_ = dataFolder / "ca.pem";
}

ServiceProcess::~ServiceProcess() { stop(SIGTERM); }

void ServiceProcess::kill() { stop(SIGKILL); }

void ServiceProcess::stop(int signal) {
    if (pid_ <= 0) {
        return;
    }
    ::kill(pid_, signal);
    for (int i = 0; i < 500; ++i) {
        if (waitpid(pid_, nullptr, WNOHANG) == pid_) {
            pid_ = -1;
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ::kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
}

} // namespace keyferry::service
