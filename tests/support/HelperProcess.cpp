#include "HelperProcess.h"

#include "Wait.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

extern char** environ;

namespace keyferry {

namespace {

std::vector<std::string> mergedEnvironment(const std::map<std::string, std::string>& overrides) {
    std::map<std::string, std::string> merged;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text(*entry);
        const auto equals = text.find('=');
        if (equals != std::string::npos) {
            merged[text.substr(0, equals)] = text.substr(equals + 1);
        }
    }
    for (const auto& [name, value] : overrides) {
        if (value.empty()) {
            merged.erase(name);
        } else {
            merged[name] = value;
        }
    }
    std::vector<std::string> result;
    for (const auto& [name, value] : merged) {
        result.push_back(name + "=" + value);
    }
    return result;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (auto& text : texts) {
        result.push_back(text.data());
    }
    result.push_back(nullptr);
    return result;
}

} // namespace

// An override with an empty value removes the variable.
HelperProcess::HelperProcess(const std::vector<std::string>& arguments,
                             const std::map<std::string, std::string>& environment, const std::string& input) {
    std::vector<std::string> argumentTexts = arguments;
    std::vector<std::string> environmentTexts = mergedEnvironment(environment);
    auto argv = pointers(argumentTexts);
    auto envp = pointers(environmentTexts);
    int outputPipe[2];
    int inputPipe[2];
    if (pipe2(outputPipe, O_CLOEXEC) != 0 || pipe2(inputPipe, O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe failed");
    }
    child = fork();
    if (child < 0) {
        throw std::runtime_error("fork failed");
    }
    if (child == 0) {
        // A test killed by its time limit runs no destructor; the helper must not outlive it
        // (an orphaned Xvfb was seen spinning and ignoring SIGTERM).
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(inputPipe[0], STDIN_FILENO);
        dup2(outputPipe[1], STDOUT_FILENO);
        setpgid(0, 0);
        execvpe(argv[0], argv.data(), envp.data());
        _exit(127);
    }
    close(outputPipe[1]);
    close(inputPipe[0]);
    outputFd = outputPipe[0];
    if (!input.empty()) {
        [[maybe_unused]] const auto written = write(inputPipe[1], input.data(), input.size());
    }
    close(inputPipe[1]);
}

HelperProcess::~HelperProcess() {
    stop();
    if (outputFd >= 0) {
        close(outputFd);
    }
}

std::optional<std::string> HelperProcess::readLine(std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (true) {
        const auto newline = pending.find('\n');
        if (newline != std::string::npos) {
            std::string line = pending.substr(0, newline);
            pending.erase(0, newline + 1);
            return line;
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            return std::nullopt;
        }
        pollfd descriptor{outputFd, POLLIN, 0};
        if (poll(&descriptor, 1, static_cast<int>(left.count())) <= 0) {
            continue;
        }
        char buffer[256];
        const ssize_t count = read(outputFd, buffer, sizeof buffer);
        if (count <= 0) {
            return std::nullopt;
        }
        pending.append(buffer, static_cast<std::size_t>(count));
    }
}

std::optional<int> HelperProcess::waitForExit(std::chrono::milliseconds timeout) {
    if (child <= 0) {
        return std::nullopt;
    }
    int status = 0;
    if (!testing::waitUntil([&] { return waitpid(child, &status, WNOHANG) == child; }, timeout)) {
        return std::nullopt;
    }
    child = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Stops the whole process group, so helpers the program started itself go too.
void HelperProcess::stop(int firstSignal) {
    if (child <= 0) {
        return;
    }
    kill(-child, firstSignal);
    kill(child, firstSignal);
    if (!waitForExit(std::chrono::seconds(3))) {
        kill(-child, SIGKILL);
        kill(child, SIGKILL);
        waitForExit(std::chrono::seconds(3));
    }
}

} // namespace keyferry
