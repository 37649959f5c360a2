#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace keyferry::service {

// The service's own certificate authority and server certificate, kept as PEM files in the data folder:
// ca.pem (give it to phones and to the application), ca-key.pem, server.pem (server then CA) and
// server-key.pem; keys are written readable by the owner only. Made with the OpenSSL API on first use;
// the server certificate is issued again when the host names change or it is within 30 days of its end.
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
};

} // namespace keyferry::service
