#pragma once

#include "ApiRouter.h"
#include "ClientLimits.h"
#include "ComputerConnections.h"
#include "ServerOptions.h"
#include "ServiceClock.h"
#include "ServiceCore.h"
#include "Storage.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/steady_timer.hpp>

#include <filesystem>
#include <memory>

namespace keyferry::service {

class Listener;

// The whole service in one object: storage in the data folder, certificates, the TLS context, the core,
// the computers' sockets and the listener, all on one io_context. The constructor prepares everything and
// binds the port (throws std::runtime_error or boost::system::system_error on failure); run() serves on
// the calling thread until stop(), which may be called from any thread. The clock must outlive it.
// Constructing one makes the process ignore SIGPIPE (a closed peer is reported as EPIPE instead).
class KeyferryServer {
public:
    KeyferryServer(const ServerOptions& options, ServiceClock& clock);
    ~KeyferryServer();
    KeyferryServer(const KeyferryServer&) = delete;
    KeyferryServer& operator=(const KeyferryServer&) = delete;

    unsigned short port() const;
    // The authority certificate that phones and the application trust (the service's own, or --cert's chain).
    const std::filesystem::path& authorityFile() const { return authorityFile_; }

    // Stops on SIGINT and SIGTERM; for the program, not for tests.
    void stopOnTerminationSignals();
    void run();
    void stop();

private:
    void configureTls(const std::filesystem::path& chain, const std::filesystem::path& key);
    // Deletes expired texts now and then every hour.
    void expireTextsHourly();

    // Before the io_context: connections still pending when it is destroyed give their places back here.
    ClientLimits clientLimits_;
    boost::asio::io_context io_{1};
    boost::asio::ssl::context tls_;
    std::filesystem::path authorityFile_;
    std::unique_ptr<Storage> storage_;
    ComputerConnections connections_;
    ServiceCore core_;
    std::unique_ptr<ApiRouter> router_;
    std::shared_ptr<Listener> listener_;
    std::unique_ptr<boost::asio::signal_set> signals_;
    boost::asio::steady_timer expiry_{io_};
};

} // namespace keyferry::service
