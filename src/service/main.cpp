#include "CertificateAuthority.h"
#include "KeyferryServer.h"
#include "ServerOptions.h"
#include "ServiceClock.h"
#include "ServiceLog.h"

#include <iostream>
#include <sys/resource.h>

namespace {

using namespace keyferry::service;

// Every connection is a descriptor: the soft limit (often 1,024) is raised to the hard one, so that the
// per-client limits, not the process, decide who is served.
void raiseOpenFileLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) {
        ServiceLog::warning("cannot read the open file limit");
        return;
    }
    if (limit.rlim_cur != limit.rlim_max) {
        const rlim_t previous = limit.rlim_cur;
        limit.rlim_cur = limit.rlim_max;
        if (setrlimit(RLIMIT_NOFILE, &limit) != 0) {
            ServiceLog::warning("cannot raise the open file limit above " + std::to_string(previous));
            return;
        }
    }
    ServiceLog::info("open file limit: " +
                     (limit.rlim_cur == RLIM_INFINITY ? std::string("unlimited") : std::to_string(limit.rlim_cur)));
}

int serve(const ServerOptions& options) {
    raiseOpenFileLimit();
    ServiceLog::info("keyferry-service starting; data folder " + options.dataFolder.string());
    SystemClock clock;
    KeyferryServer server(options, clock);
    server.stopOnTerminationSignals();
    const std::string address = options.listenHost + ":" + std::to_string(server.port());
    ServiceLog::info("listening on " + address + "; at most " + std::to_string(options.connectionsPerClient) +
                     " connections and " + std::to_string(options.handshakesPerClient) +
                     " handshakes in progress per client");
    // The one line people need: where the service is and which certificate phones must trust.
    std::cout << "keyferry-service listening on " << address
              << "; certificate authority: " << server.authorityFile().string() << std::endl;
    server.run();
    ServiceLog::info("keyferry-service stopped");
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    const auto parsed = ServerOptions::parse(std::vector<std::string>(argv + 1, argv + argc));
    if (const auto* message = std::get_if<std::string>(&parsed)) {
        const bool isHelp = message->starts_with("usage:");
        (isHelp ? std::cout : std::cerr) << *message << (message->ends_with('\n') ? "" : "\n");
        return isHelp ? 0 : 2;
    }
    const auto& options = std::get<ServerOptions>(parsed);
    try {
        if (options.initOnly) {
            // Lets the application be built with this service's authority before the service first runs.
            std::cout << CertificateAuthority::ensure(options.dataFolder, options.hostNames).authority.string() << "\n";
            return 0;
        }
        return serve(options);
    } catch (const std::exception& error) {
        ServiceLog::error(std::string("keyferry-service stops: ") + error.what());
        return 1;
    }
}
