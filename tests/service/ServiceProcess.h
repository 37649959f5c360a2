#pragma once

#include "HelperProcess.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace keyferry::service {

// The keyferry-service program run as a child process on 127.0.0.1 and a free port. The constructor
// waits (up to 20 s) for its "listening" line and throws std::runtime_error when it does not come. The
// destructor ends the process with SIGTERM (SIGKILL after 5 s) and reaps it.
class ServiceProcess {
public:
    ServiceProcess(const std::filesystem::path& program, const std::filesystem::path& dataFolder,
                   const std::vector<std::string>& extraArguments = {});

    unsigned short port() const { return port_; }
    std::filesystem::path authority() const { return authority_; }
    pid_t pid() const { return process_->pid(); }
    // Ends the process at once, as a crash or power cut would; returns when it is gone.
    void kill();

private:
    std::unique_ptr<HelperProcess> process_;
    unsigned short port_ = 0;
    std::filesystem::path authority_;
};

} // namespace keyferry::service
