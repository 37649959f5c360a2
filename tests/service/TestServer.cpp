#include "TestServer.h"

namespace keyferry::service {

TestServer::TestServer(const std::filesystem::path& dataFolder, ServiceClock& clock) {
    ServerOptions options;
    options.listenHost = "127.0.0.1";
    options.listenPort = 0;
    options.dataFolder = dataFolder;
    server_ = std::make_unique<KeyferryServer>(options, clock);
    port_ = server_->port();
    authority_ = server_->authorityFile();
    thread_ = std::thread([this] { server_->run(); });
}

TestServer::~TestServer() {
    server_->stop();
    thread_.join();
}

} // namespace keyferry::service
