#pragma once

#include "KeyferryServer.h"
#include "ServiceClock.h"

#include <filesystem>
#include <memory>
#include <thread>

namespace keyferry::service {

// A KeyferryServer serving on its own thread on 127.0.0.1 and a free port, with a data folder and clock
// chosen by the test. Stops and joins on destruction, so a new one can open the same folder again.
class TestServer {
public:
    TestServer(const std::filesystem::path& dataFolder, ServiceClock& clock);
    ~TestServer();
    TestServer(const TestServer&) = delete;
    TestServer& operator=(const TestServer&) = delete;

    unsigned short port() const { return port_; }
    std::filesystem::path authority() const { return authority_; }

private:
    std::unique_ptr<KeyferryServer> server_;
    unsigned short port_ = 0;
    std::filesystem::path authority_;
    std::thread thread_;
};

} // namespace keyferry::service
