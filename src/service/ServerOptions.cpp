#include "ServerOptions.h"

#include <charconv>
#include <cstdlib>

namespace keyferry::service {
namespace {

// Splits "host:port", "[v6]:port"; nothing when malformed.
std::optional<std::pair<std::string, unsigned short>> splitEndpoint(const std::string& text) {
    const auto colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0) {
        return std::nullopt;
    }
    std::string host = text.substr(0, colon);
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        host = host.substr(1, host.size() - 2);
    }
    unsigned port = 0;
    const char* end = text.data() + text.size();
    const auto [last, error] = std::from_chars(text.data() + colon + 1, end, port);
    if (error != std::errc() || last != end || port > 65535) {
        return std::nullopt;
    }
    return std::pair{host, static_cast<unsigned short>(port)};
}

// The host of an https URL, without port or brackets; nothing when it is not one.
std::optional<std::string> hostOfUrl(const std::string& url) {
    constexpr std::string_view scheme = "https://";
    if (!url.starts_with(scheme)) {
        return std::nullopt;
    }
    std::string authority = url.substr(scheme.size(), url.find('/', scheme.size()) - scheme.size());
    if (authority.starts_with('[')) {
        const auto close = authority.find(']');
        return close == std::string::npos ? std::nullopt : std::optional(authority.substr(1, close - 1));
    }
    authority = authority.substr(0, authority.find(':'));
    return authority.empty() ? std::nullopt : std::optional(authority);
}

// A count from 1 to a million; nothing when malformed.
std::optional<std::size_t> positiveCount(const std::string& text) {
    std::size_t count = 0;
    const char* end = text.data() + text.size();
    const auto [last, error] = std::from_chars(text.data(), end, count);
    if (error != std::errc() || last != end || count == 0 || count > 1'000'000) {
        return std::nullopt;
    }
    return count;
}

} // namespace

std::variant<ServerOptions, std::string> ServerOptions::parse(const std::vector<std::string>& arguments) {
    ServerOptions options;
    options.dataFolder = defaultDataFolder();
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& name = arguments[i];
        if (name == "--help" || name == "-h") {
            return usage();
        }
        if (name == "--init") {
            options.initOnly = true;
            continue;
        }
        if (i + 1 >= arguments.size()) {
            return "missing value after " + name + "\n" + usage();
        }
        const std::string& value = arguments[++i];
        if (name == "--listen") {
            const auto endpoint = splitEndpoint(value);
            if (!endpoint) {
                return "--listen takes HOST:PORT, for example 0.0.0.0:8443";
            }
            std::tie(options.listenHost, options.listenPort) = *endpoint;
        } else if (name == "--data") {
            options.dataFolder = value;
        } else if (name == "--cert") {
            options.certificateFile = value;
        } else if (name == "--key") {
            options.keyFile = value;
        } else if (name == "--public-url") {
            const auto host = hostOfUrl(value);
            if (!host) {
                return "--public-url takes an https URL, for example https://keyferry.example.net:8443";
            }
            options.publicUrl = value;
            options.hostNames.push_back(*host);
        } else if (name == "--host-name") {
            options.hostNames.push_back(value);
        } else if (name == "--max-connections-per-client" || name == "--max-handshakes-per-client") {
            const auto count = positiveCount(value);
            if (!count) {
                return name + " takes a number from 1 to 1000000";
            }
            (name == "--max-connections-per-client" ? options.connectionsPerClient : options.handshakesPerClient) =
                *count;
        } else {
            return "unknown option " + name + "\n" + usage();
        }
    }
    if (options.certificateFile.has_value() != options.keyFile.has_value()) {
        return "--cert and --key go together";
    }
    return options;
}

std::string ServerOptions::usage() {
    return "usage: keyferry-service [--listen HOST:PORT] [--data DIR] [--cert FILE --key FILE]\n"
           "                        [--public-url https://HOST:PORT] [--host-name NAME]... [--init]\n"
           "                        [--max-connections-per-client N] [--max-handshakes-per-client N]\n"
           "  --listen      address to listen on (default 127.0.0.1:8443; use 0.0.0.0:8443 for phones on the LAN)\n"
           "  --data        data folder (default $XDG_DATA_HOME/keyferry-service)\n"
           "  --cert/--key  serve this PEM certificate chain and key instead of the service's own\n"
           "  --public-url  the address phones open; its host goes into the service's certificate\n"
           "  --host-name   another name or address for the service's certificate (repeatable)\n"
           "  --init        prepare the data folder and certificates, print the authority's path, and exit\n"
           "  --max-connections-per-client  connections one client address (IPv6: one /64) may hold (default 256)\n"
           "  --max-handshakes-per-client   TLS handshakes in progress one client may have (default 16)\n";
}

std::filesystem::path ServerOptions::defaultDataFolder() {
    if (const char* dataHome = std::getenv("XDG_DATA_HOME"); dataHome && *dataHome) {
        return std::filesystem::path(dataHome) / "keyferry-service";
    }
    const char* home = std::getenv("HOME");
    return std::filesystem::path(home ? home : ".") / ".local" / "share" / "keyferry-service";
}

} // namespace keyferry::service
