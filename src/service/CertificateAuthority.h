#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace keyferry::service {

// The service's own certificate authority and server certificate, kept as PEM files in the data folder:
// ca.pem (give it to phones and to the application), ca-key.pem, server.pem (server then CA) and
// server-key.pem; keys are written readable by the owner only. Made with the OpenSSL API on first use.
// The authority carries critical name constraints: it can vouch only for the service's own names and
// addresses, so its key cannot mint a certificate phones would accept for any other site. It is issued
// again (with a new key, and a warning in the log: phones must install it again) when those names change;
// the server certificate is issued again then and when it is within 30 days of its end.
// Failures throw std::runtime_error. Called once at start-up, before the network runs.
class CertificateAuthority {
public:
    struct Files {
        std::filesystem::path authority;
        std::filesystem::path chain;
        std::filesystem::path key;
    };

    // Makes sure the files exist and the server certificate names localhost, 127.0.0.1, ::1 and
    // `extraHostNames` (DNS names or IP addresses).
    static Files ensure(const std::filesystem::path& folder, const std::vector<std::string>& extraHostNames);
    // Makes the data folder if needed and makes it the owner's only (0700): it holds signing keys.
    static void prepareFolder(const std::filesystem::path& folder);
};

} // namespace keyferry::service
