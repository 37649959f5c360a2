#include "KeyferryServer.h"

#include "CertificateAuthority.h"
#include "Listener.h"
#include "ServiceLog.h"
#include "SqliteStorage.h"

#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>

#include <openssl/ssl.h>

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace keyferry::service {
namespace {

// The database holds credentials' hashes and people's texts: its folder and files are the owner's only.
// SQLite gives the WAL and SHM files the database file's mode, so the database is made 0600 first.
std::unique_ptr<Storage> openStorage(const std::filesystem::path& folder) {
    CertificateAuthority::prepareFolder(folder);
    const std::filesystem::path database = folder / "keyferry.sqlite3";
    constexpr auto ownerOnly = std::filesystem::perms::owner_read | std::filesystem::perms::owner_write;
    if (const int made = ::open(database.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600); made >= 0) {
        ::close(made);
    }
    for (const char* suffix : {"", "-wal", "-shm"}) {
        const std::filesystem::path file = database.string() + suffix;
        if (std::filesystem::exists(file)) {
            std::filesystem::permissions(file, ownerOnly, std::filesystem::perm_options::replace);
        }
    }
    return std::make_unique<SqliteStorage>(database.string());
}

std::string readFile(const std::filesystem::path& path) {
    std::ifstream stream(path);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

} // namespace

KeyferryServer::KeyferryServer(const ServerOptions& options, ServiceClock& clock)
    : clientLimits_(options.connectionsPerClient, options.handshakesPerClient),
      tls_(boost::asio::ssl::context::tls_server), storage_(openStorage(options.dataFolder)),
      core_(clock, *storage_, connections_.events()) {
    // OpenSSL writes to the sockets itself, without MSG_NOSIGNAL: a peer that hangs up mid-write must end
    // that connection with EPIPE, not the whole process.
    std::signal(SIGPIPE, SIG_IGN);
    if (options.certificateFile) {
        authorityFile_ = *options.certificateFile;
        configureTls(*options.certificateFile, *options.keyFile);
    } else {
        const auto files = CertificateAuthority::ensure(options.dataFolder, options.hostNames);
        authorityFile_ = files.authority;
        configureTls(files.chain, files.key);
    }
    expireTextsHourly();
    router_ = std::make_unique<ApiRouter>(core_, readFile(authorityFile_));
    const boost::asio::ip::tcp::endpoint endpoint(boost::asio::ip::make_address(options.listenHost),
                                                  options.listenPort);
    listener_ = std::make_shared<Listener>(io_, tls_, endpoint, *router_, core_, connections_, clientLimits_);
    listener_->start();
}

KeyferryServer::~KeyferryServer() = default;

void KeyferryServer::configureTls(const std::filesystem::path& chain, const std::filesystem::path& key) {
    SSL_CTX* context = tls_.native_handle();
    SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION);
    // TLS 1.2 with authenticated encryption only (TLS 1.3 has nothing else): no CBC suites and their
    // padding-oracle history.
    if (SSL_CTX_set_cipher_list(context, "ECDHE+AESGCM:ECDHE+CHACHA20") != 1) {
        throw std::runtime_error("TLS set-up failed: no AEAD cipher suites");
    }
    // Idle connections give their TLS record buffers back; this is what lets thousands of computers stay.
    SSL_CTX_set_mode(context, SSL_MODE_RELEASE_BUFFERS);
    // A peer that vanishes without close_notify is an ordinary end here; renegotiation would let a write
    // read from the socket behind a pending read's back.
    SSL_CTX_set_options(context, SSL_OP_IGNORE_UNEXPECTED_EOF | SSL_OP_NO_RENEGOTIATION);
    // Resumption works through session tickets, so no session of each connection is kept in a cache.
    SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_OFF);
    tls_.set_options(boost::asio::ssl::context::default_workarounds | boost::asio::ssl::context::no_compression |
                     boost::asio::ssl::context::single_dh_use);
    tls_.use_certificate_chain_file(chain.string());
    tls_.use_private_key_file(key.string(), boost::asio::ssl::context::pem);
}

void KeyferryServer::expireTextsHourly() {
    core_.expireTexts();
    expiry_.expires_after(std::chrono::hours(1));
    expiry_.async_wait([this](const boost::system::error_code& error) {
        if (!error) {
            expireTextsHourly();
        }
    });
}

unsigned short KeyferryServer::port() const {
    return listener_->port();
}

void KeyferryServer::stopOnTerminationSignals() {
    signals_ = std::make_unique<boost::asio::signal_set>(io_, SIGINT, SIGTERM);
    signals_->async_wait([this](const boost::system::error_code& error, int) {
        if (!error) {
            stop();
        }
    });
}

void KeyferryServer::run() {
    for (;;) {
        try {
            io_.run();
            return;
        } catch (const std::exception& error) {
            // A handler failed (for example the database refused a write); that connection is dropped and
            // the service keeps serving the others.
            ServiceLog::error(std::string("a connection was dropped after an error: ") + error.what());
        }
    }
}

void KeyferryServer::stop() {
    boost::asio::post(io_, [this] {
        listener_->stop();
        connections_.closeAll();
        expiry_.cancel();
        if (signals_) {
            signals_->cancel();
        }
        // A moment for the closing handshakes, then everything ends.
        auto grace = std::make_shared<boost::asio::steady_timer>(io_, std::chrono::milliseconds(200));
        grace->async_wait([this, grace](const boost::system::error_code&) { io_.stop(); });
    });
}

} // namespace keyferry::service
