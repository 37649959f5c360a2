#include "CertificateAuthority.h"

#include "ServiceLog.h"

#include <boost/asio/ip/address.hpp>

#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <sys/stat.h>

namespace keyferry::service {
namespace {

template <auto Free> struct OpenSslDeleter {
    template <typename T> void operator()(T* pointer) const { Free(pointer); }
};
using KeyPtr = std::unique_ptr<EVP_PKEY, OpenSslDeleter<EVP_PKEY_free>>;
using CertificatePtr = std::unique_ptr<X509, OpenSslDeleter<X509_free>>;
using FilePtr = std::unique_ptr<FILE, OpenSslDeleter<std::fclose>>;

constexpr long dayInSeconds = 24L * 60 * 60;
constexpr long authorityLifetimeDays = 3650;
constexpr long serverLifetimeDays = 825; // the longest a phone's browser accepts from a private authority
constexpr long renewalMarginDays = 30;

void require(bool condition, const char* what) {
    if (!condition) {
        throw std::runtime_error(std::string("certificate set-up failed: ") + what);
    }
}

KeyPtr newKey() {
    KeyPtr key(EVP_EC_gen("P-256"));
    require(key != nullptr, "key generation");
    return key;
}

FilePtr openFile(const std::filesystem::path& path, const char* mode) {
    FilePtr file(std::fopen(path.c_str(), mode));
    require(file != nullptr, "cannot open a certificate file");
    return file;
}

void writeKey(const std::filesystem::path& path, EVP_PKEY* key) {
    const mode_t previous = umask(077);
    FilePtr file = openFile(path, "w");
    umask(previous);
    require(PEM_write_PrivateKey(file.get(), key, nullptr, nullptr, 0, nullptr, nullptr) == 1, "writing a key");
}

void writeCertificates(const std::filesystem::path& path, const std::vector<X509*>& certificates) {
    FilePtr file = openFile(path, "w");
    for (X509* certificate : certificates) {
        require(PEM_write_X509(file.get(), certificate) == 1, "writing a certificate");
    }
}

KeyPtr readKey(const std::filesystem::path& path) {
    FilePtr file = openFile(path, "r");
    KeyPtr key(PEM_read_PrivateKey(file.get(), nullptr, nullptr, nullptr));
    require(key != nullptr, "reading a key");
    return key;
}

CertificatePtr readCertificate(const std::filesystem::path& path) {
    FilePtr file = openFile(path, "r");
    CertificatePtr certificate(PEM_read_X509(file.get(), nullptr, nullptr, nullptr));
    require(certificate != nullptr, "reading a certificate");
    return certificate;
}

using ExtensionPtr = std::unique_ptr<X509_EXTENSION, OpenSslDeleter<X509_EXTENSION_free>>;

ExtensionPtr newExtension(X509* certificate, X509* issuer, int nid, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    ExtensionPtr extension(X509V3_EXT_conf_nid(nullptr, &context, nid, value.c_str()));
    require(extension != nullptr, "an extension");
    return extension;
}

void addExtension(X509* certificate, X509* issuer, int nid, const std::string& value) {
    require(X509_add_ext(certificate, newExtension(certificate, issuer, nid, value).get(), -1) == 1,
            "adding an extension");
}

void setName(X509* certificate, const std::string& commonName) {
    X509_NAME* name = X509_get_subject_name(certificate);
    X509_NAME_add_entry_by_txt(name, "O", MBSTRING_UTF8, reinterpret_cast<const unsigned char*>("Keyferry"), -1, -1, 0);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8, reinterpret_cast<const unsigned char*>(commonName.c_str()),
                               -1, -1, 0);
}

CertificatePtr newCertificate(EVP_PKEY* key, const std::string& commonName, long lifetimeDays) {
    CertificatePtr certificate(X509_new());
    require(certificate != nullptr, "allocation");
    X509_set_version(certificate.get(), 2);
    std::unique_ptr<BIGNUM, OpenSslDeleter<BN_free>> serial(BN_new());
    require(BN_rand(serial.get(), 127, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY) == 1, "serial number");
    BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(certificate.get()));
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -dayInSeconds);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), lifetimeDays * dayInSeconds);
    X509_set_pubkey(certificate.get(), key);
    setName(certificate.get(), commonName);
    return certificate;
}

void sign(X509* certificate, EVP_PKEY* issuerKey) {
    require(X509_sign(certificate, issuerKey, EVP_sha256()) > 0, "signing");
}

// The address `host` names, when it is an IP address rather than a DNS name.
std::optional<boost::asio::ip::address> addressOf(const std::string& host) {
    boost::system::error_code error;
    const auto address = boost::asio::ip::make_address(host, error);
    return error ? std::nullopt : std::optional(address);
}

std::string subjectAltNames(const std::vector<std::string>& hostNames) {
    std::string names;
    for (const std::string& host : hostNames) {
        names += (names.empty() ? "" : ",") + std::string(addressOf(host) ? "IP:" : "DNS:") + host;
    }
    return names;
}

// The authority's name constraints: it may vouch for these names (and, for a DNS name, the names under
// it) and these single addresses, nothing else. Clients enforce them, so the authority key cannot be
// used to impersonate any other site to a phone that trusts it.
std::string permittedSubtrees(const std::vector<std::string>& hostNames) {
    std::string subtrees = "critical";
    for (const std::string& host : hostNames) {
        const auto address = addressOf(host);
        if (!address) {
            subtrees += ",permitted;DNS:" + host;
        } else if (address->is_v4()) {
            subtrees += ",permitted;IP:" + host + "/255.255.255.255";
        } else {
            subtrees += ",permitted;IP:" + host + "/ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff";
        }
    }
    return subtrees;
}

void makeAuthority(const CertificateAuthority::Files& files, const std::filesystem::path& keyPath,
                   const std::string& constraints) {
    KeyPtr key = newKey();
    CertificatePtr certificate = newCertificate(key.get(), "Keyferry local authority", authorityLifetimeDays);
    X509_set_issuer_name(certificate.get(), X509_get_subject_name(certificate.get()));
    addExtension(certificate.get(), certificate.get(), NID_basic_constraints, "critical,CA:TRUE,pathlen:0");
    addExtension(certificate.get(), certificate.get(), NID_key_usage, "critical,keyCertSign,cRLSign");
    addExtension(certificate.get(), certificate.get(), NID_subject_key_identifier, "hash");
    addExtension(certificate.get(), certificate.get(), NID_name_constraints, constraints);
    sign(certificate.get(), key.get());
    writeKey(keyPath, key.get());
    writeCertificates(files.authority, {certificate.get()});
}

void makeServerCertificate(const CertificateAuthority::Files& files, const std::filesystem::path& authorityKeyPath,
                           const std::vector<std::string>& hostNames) {
    KeyPtr authorityKey = readKey(authorityKeyPath);
    CertificatePtr authority = readCertificate(files.authority);
    KeyPtr key = newKey();
    CertificatePtr certificate = newCertificate(key.get(), hostNames.front(), serverLifetimeDays);
    X509_set_issuer_name(certificate.get(), X509_get_subject_name(authority.get()));
    addExtension(certificate.get(), authority.get(), NID_basic_constraints, "critical,CA:FALSE");
    addExtension(certificate.get(), authority.get(), NID_key_usage, "critical,digitalSignature");
    addExtension(certificate.get(), authority.get(), NID_ext_key_usage, "serverAuth");
    addExtension(certificate.get(), authority.get(), NID_subject_key_identifier, "hash");
    addExtension(certificate.get(), authority.get(), NID_authority_key_identifier, "keyid:always");
    addExtension(certificate.get(), authority.get(), NID_subject_alt_name, subjectAltNames(hostNames));
    sign(certificate.get(), authorityKey.get());
    writeKey(files.key, key.get());
    writeCertificates(files.chain, {certificate.get(), authority.get()});
}

std::string readText(const std::filesystem::path& path) {
    std::ifstream stream(path);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

bool serverCertificateIsCurrent(const CertificateAuthority::Files& files, const std::filesystem::path& namesPath,
                                const std::string& names) {
    if (!std::filesystem::exists(files.chain) || !std::filesystem::exists(files.key) || readText(namesPath) != names) {
        return false;
    }
    CertificatePtr certificate = readCertificate(files.chain);
    time_t renewal = time(nullptr) + renewalMarginDays * dayInSeconds;
    return X509_cmp_time(X509_get0_notAfter(certificate.get()), &renewal) > 0;
}

// Whether the authority matches its key and carries exactly `constraints`, marked critical.
bool authorityIsCurrent(const std::filesystem::path& authorityPath, const std::filesystem::path& keyPath,
                        const std::string& constraints) {
    CertificatePtr authority = readCertificate(authorityPath);
    KeyPtr key = readKey(keyPath);
    const int index = X509_get_ext_by_NID(authority.get(), NID_name_constraints, -1);
    if (X509_check_private_key(authority.get(), key.get()) != 1 || index < 0) {
        return false;
    }
    X509_EXTENSION* actual = X509_get_ext(authority.get(), index);
    const ExtensionPtr expected = newExtension(authority.get(), authority.get(), NID_name_constraints, constraints);
    return X509_EXTENSION_get_critical(actual) == 1 &&
           ASN1_OCTET_STRING_cmp(X509_EXTENSION_get_data(actual), X509_EXTENSION_get_data(expected.get())) == 0;
}

// Makes a new authority unless the one in the folder is limited to exactly `constraints`. Replacing an
// authority phones already trust is worth a warning: they must install the new one.
void ensureAuthority(const CertificateAuthority::Files& files, const std::filesystem::path& folder,
                     const std::string& constraints) {
    const std::filesystem::path authorityKey = folder / "ca-key.pem";
    const bool exists = std::filesystem::exists(files.authority) && std::filesystem::exists(authorityKey);
    if (exists && authorityIsCurrent(files.authority, authorityKey, constraints)) {
        return;
    }
    makeAuthority(files, authorityKey, constraints);
    std::filesystem::remove(files.chain);
    if (exists) {
        ServiceLog::warning("the certificate authority was issued again for the service's new names and addresses; "
                            "phones must install the new " +
                            files.authority.string() +
                            " (served at /ca.pem) again, "
                            "and the application must be built with it");
    } else {
        ServiceLog::info("made a certificate authority: " + files.authority.string());
    }
}

} // namespace

void CertificateAuthority::prepareFolder(const std::filesystem::path& folder) {
    std::filesystem::create_directories(folder);
    std::filesystem::permissions(folder, std::filesystem::perms::owner_all, std::filesystem::perm_options::replace);
}

CertificateAuthority::Files CertificateAuthority::ensure(const std::filesystem::path& folder,
                                                         const std::vector<std::string>& extraHostNames) {
    prepareFolder(folder);
    const Files files{folder / "ca.pem", folder / "server.pem", folder / "server-key.pem"};
    std::vector<std::string> hostNames{"localhost", "127.0.0.1", "::1"};
    for (const std::string& host : extraHostNames) {
        if (!host.empty() && std::find(hostNames.begin(), hostNames.end(), host) == hostNames.end()) {
            hostNames.push_back(host);
        }
    }
    ensureAuthority(files, folder, permittedSubtrees(hostNames));
    const std::filesystem::path authorityKey = folder / "ca-key.pem";
    const std::string names = subjectAltNames(hostNames);
    const std::filesystem::path namesPath = folder / "server-names.txt";
    if (!serverCertificateIsCurrent(files, namesPath, names)) {
        makeServerCertificate(files, authorityKey, hostNames);
        std::ofstream(namesPath) << names;
    }
    return files;
}

} // namespace keyferry::service
