#include "ServiceProcess.h"

#include <csignal>
#include <stdexcept>

namespace keyferry::service {

ServiceProcess::ServiceProcess(const std::filesystem::path& program, const std::filesystem::path& dataFolder,
                               const std::vector<std::string>& extraArguments) {
    std::vector<std::string> arguments{program.string(), "--listen", "127.0.0.1:0", "--data", dataFolder.string()};
    arguments.insert(arguments.end(), extraArguments.begin(), extraArguments.end());
    process_ = std::make_unique<HelperProcess>(arguments);
    const std::string line = process_->readLine(std::chrono::seconds(20)).value_or("");
    const auto listening = line.find("127.0.0.1:");
    const auto semicolon = line.find(';');
    if (listening == std::string::npos || semicolon == std::string::npos) {
        process_->stop(SIGKILL);
        throw std::runtime_error("keyferry-service did not start: " + line);
    }
    port_ = static_cast<unsigned short>(std::stoi(line.substr(listening + 10, semicolon - listening - 10)));
    authority_ = dataFolder / "ca.pem";
}

void ServiceProcess::kill() {
    process_->stop(SIGKILL);
}

} // namespace keyferry::service
