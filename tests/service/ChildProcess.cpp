#include "ChildProcess.h"

#include <csignal>
#include <cstdlib>
#include <poll.h>
#include <sys/prctl.h>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace keyferry::service {

ChildProcess::ChildProcess(const std::vector<std::string>& arguments,
                           const std::map<std::string, std::string>& environment) {
    int output[2];
    if (arguments.empty() || pipe(output) != 0) {
        throw std::runtime_error("cannot start a child process");
    }
    pid_ = fork();
    if (pid_ == 0) {
        // Whatever ends the test (a crash, a time-out's kill) ends its helpers too.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(output[1], STDOUT_FILENO);
        close(output[0]);
        close(output[1]);
        for (const auto& [name, value] : environment) {
            setenv(name.c_str(), value.c_str(), 1);
        }
        std::vector<char*> argv;
        for (const std::string& argument : arguments) {
            argv.push_back(const_cast<char*>(argument.c_str()));
        }
        argv.push_back(nullptr);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    close(output[1]);
    output_ = output[0];
    if (pid_ < 0) {
        close(output_);
        throw std::runtime_error("fork failed");
    }
}

ChildProcess::~ChildProcess() {
    stop(SIGTERM);
    if (output_ >= 0) {
        close(output_);
    }
}

std::optional<std::string> ChildProcess::readLine(std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        if (const auto newline = pending_.find('\n'); newline != std::string::npos) {
            std::string line = pending_.substr(0, newline);
            pending_.erase(0, newline + 1);
            return line;
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd ready{output_, POLLIN, 0};
        if (left.count() <= 0 || poll(&ready, 1, static_cast<int>(left.count())) <= 0) {
            return std::nullopt;
        }
        char chunk[512];
        const ssize_t size = read(output_, chunk, sizeof chunk);
        if (size <= 0) {
            return std::nullopt;
        }
        pending_.append(chunk, static_cast<std::size_t>(size));
    }
}

std::optional<int> ChildProcess::wait(std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (pid_ > 0) {
        int status = 0;
        if (waitpid(pid_, &status, WNOHANG) == pid_) {
            pid_ = -1;
            return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            return std::nullopt;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return std::nullopt;
}

void ChildProcess::stop(int signal) {
    if (pid_ <= 0) {
        return;
    }
    kill(pid_, signal);
    if (!wait(std::chrono::seconds(5))) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }
}

} // namespace keyferry::service
