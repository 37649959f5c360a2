#pragma once

#include "ClientLimits.h"

#include <filesystem>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace keyferry::service {

// How keyferry-service is started, from its command line:
//   --listen HOST:PORT  address to listen on (default 127.0.0.1:8443; 0.0.0.0:8443 or [::]:8443 for phones
//                       on the local network); port 0 picks a free port
//   --data DIR          data folder: database, certificate authority, server certificate
//   --cert FILE --key FILE  serve this certificate chain and key instead of the service's own
//   --public-url URL    the https address phones use; its host is added to the server certificate
//   --host-name NAME    another host name or address for the server certificate (repeatable)
//   --init              prepare the data folder and certificates, print the authority's path, and exit
//   --max-connections-per-client N, --max-handshakes-per-client N  each client's share (ClientLimits)
struct ServerOptions {
    std::string listenHost = "127.0.0.1";
    unsigned short listenPort = 8443;
    std::filesystem::path dataFolder;
    std::optional<std::filesystem::path> certificateFile;
    std::optional<std::filesystem::path> keyFile;
    std::optional<std::string> publicUrl;
    std::vector<std::string> hostNames;
    bool initOnly = false;
    std::size_t connectionsPerClient = ClientLimits::defaultConnectionsPerClient;
    std::size_t handshakesPerClient = ClientLimits::defaultHandshakesPerClient;

    // The options, or the text of what is wrong with the arguments (or the usage for --help).
    static std::variant<ServerOptions, std::string> parse(const std::vector<std::string>& arguments);
    static std::string usage();
    // The data folder used when none is given: $XDG_DATA_HOME/keyferry-service or ~/.local/share/....
    static std::filesystem::path defaultDataFolder();
};

} // namespace keyferry::service
