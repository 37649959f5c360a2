#include "CertificateAuthority.h"

#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <sys/stat.h>

namespace keyferry::service {
namespace {

template <auto Free>
struct OpenSslDeleter {
    template <typename T>
    void operator()(T* pointer) const { Free(pointer); }
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

void addExtension(X509* certificate, X509* issuer, int nid, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    std::unique_ptr<X509_EXTENSION, OpenSslDeleter<X509_EXTENSION_free>> extension(
        X509V3_EXT_conf_nid(nullptr, &context, nid, value.c_str()));
    require(extension != nullptr, "an extension");
    require(X509_add_ext(certificate, extension.get(), -1) == 1, "adding an extension");
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

std::string subjectAltNames(const std::vector<std::string>& hostNames) {
    std::string names;
    for (const std::string& host : hostNames) {
        const bool isAddress = host.find(':') != std::string::npos ||
                               std::all_of(host.begin(), host.end(), [](char c) { return c == '.' || std::isdigit(static_cast<unsigned char>(c)); });
        names += (names.empty() ? "" : ",") + std::string(isAddress ? "IP:" : "DNS:") + host;
    }
    return names;
}

void makeAuthority(const CertificateAuthority::Files& files, const std::filesystem::path& keyPath) {
    KeyPtr key = newKey();
    CertificatePtr certificate = newCertificate(key.get(), "Keyferry local authority", authorityLifetimeDays);
    X509_set_issuer_name(certificate.get(), X509_get_subject_name(certificate.get()));
    addExtension(certificate.get(), certificate.get(), NID_basic_constraints, "critical,CA:TRUE,pathlen:0");
    addExtension(certificate.get(), certificate.get(), NID_key_usage, "critical,keyCertSign,cRLSign");
    addExtension(certificate.get(), certificate.get(), NID_subject_key_identifier, "hash");
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

} // namespace

CertificateAuthority::Files CertificateAuthority::ensure(const std::filesystem::path& folder,
                                                         const std::vector<std::string>& extraHostNames) {
    std::filesystem::create_directories(folder);
    const Files files{folder / "ca.pem", folder / "server.pem", folder / "server-key.pem"};
    const std::filesystem::path authorityKey = folder / "ca-key.pem";
    if (!std::filesystem::exists(files.authority) || !std::filesystem::exists(authorityKey)) {
        makeAuthority(files, authorityKey);
        std::filesystem::remove(files.chain);
    }
    std::vector<std::string> hostNames{"localhost", "127.0.0.1", "::1"};
    for (const std::string& host : extraHostNames) {
        if (!host.empty() && std::find(hostNames.begin(), hostNames.end(), host) == hostNames.end()) {
            hostNames.push_back(host);
        }
    }
    const std::string names = subjectAltNames(hostNames);
    const std::filesystem::path namesPath = folder / "server-names.txt";
    if (!serverCertificateIsCurrent(files, namesPath, names)) {
        makeServerCertificate(files, authorityKey, hostNames);
        std::ofstream(namesPath) << names;
    }
    return files;
}

} // namespace keyferry::service
