#include "CertificateAuthority.h"
#include "KeyferryServer.h"
#include "ServerOptions.h"
#include "ServiceClock.h"

#include <iostream>

int main(int argc, char** argv) {
    using namespace keyferry::service;
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
        SystemClock clock;
        KeyferryServer server(options, clock);
        server.stopOnTerminationSignals();
        // The one line people need: where the service is and which certificate phones must trust.
        std::cout << "keyferry-service listening on " << options.listenHost << ":" << server.port()
                  << "; certificate authority: " << server.authorityFile().string() << std::endl;
        server.run();
    } catch (const std::exception& error) {
        std::cerr << "keyferry-service: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
