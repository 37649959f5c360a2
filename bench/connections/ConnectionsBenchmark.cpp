// How many idle computer WebSockets one keyferry-service process holds, and what each costs it in
// memory. The service runs as its own process (its resident memory is read from /proc); the computers
// are simulated here, from many loopback source addresses. Prints figures; never fails a test run.
#include "IdleComputer.h"
#include "Secrets.h"
#include "ServiceProcess.h"
#include "SqliteStorage.h"
#include "TempFolder.h"

#include <boost/asio/ssl.hpp>
#include <boost/asio/steady_timer.hpp>

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

using namespace keyferry::service;

namespace {

constexpr std::size_t connectionsInFlight = 200;

long residentKiB(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.starts_with("VmRSS:")) {
            return std::stol(line.substr(6));
        }
    }
    return -1;
}

void raiseDescriptorLimit() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    std::cout << "file descriptor limit: " << limit.rlim_cur << " per process\n";
}

// Computers written straight into the service's database: pairing is not what is measured here.
std::vector<std::string> seedComputers(const std::filesystem::path& folder, std::size_t count) {
    std::filesystem::create_directories(folder);
    SqliteStorage storage((folder / "keyferry.sqlite3").string());
    std::vector<std::string> tokens;
    storage.transaction([&] {
        for (std::size_t i = 0; i < count; ++i) {
            tokens.push_back(Secrets::newToken("kfc_"));
            storage.insertComputer({Secrets::newId(), "bench " + std::to_string(i), "linux", ComputerStatus::active, 0},
                                   Secrets::tokenHash(tokens.back()));
        }
    });
    return tokens;
}

boost::asio::ip::address sourceAddress(std::size_t index) {
    std::ostringstream text;
    text << "127.0." << 1 + index / 250 << "." << 1 + index % 250;
    return boost::asio::ip::make_address(text.str());
}

void runFor(boost::asio::io_context& io, std::chrono::milliseconds duration) {
    io.restart();
    io.run_for(duration);
}

std::vector<std::size_t> parseSteps(int argc, char** argv) {
    std::vector<std::size_t> steps;
    for (int i = 1; i < argc; ++i) {
        steps.push_back(static_cast<std::size_t>(std::stoul(argv[i])));
    }
    if (steps.empty()) {
        steps = {1000, 5000, 10000};
    }
    return steps;
}

} // namespace

int main(int argc, char** argv) {
    const std::vector<std::size_t> steps = parseSteps(argc, argv);
    raiseDescriptorLimit();
    TempFolder folder;
    const auto tokens = seedComputers(folder.path(), steps.back());
    ServiceProcess service(KEYFERRY_SERVICE_PROGRAM, folder.path());

    boost::asio::io_context io{1};
    boost::asio::ssl::context tls(boost::asio::ssl::context::tls_client);
    tls.load_verify_file(service.authority().string());
    tls.set_verify_mode(boost::asio::ssl::verify_peer);
    runFor(io, std::chrono::milliseconds(500));
    const long baseline = residentKiB(service.pid());
    std::printf("service resident memory with no connection: %.1f MiB\n", baseline / 1024.0);
    std::printf("%12s %14s %18s %10s %12s\n", "connections", "service MiB", "KiB per connection", "failures",
                "open time s");

    std::vector<std::shared_ptr<IdleComputer>> computers;
    std::size_t ready = 0;
    std::size_t failed = 0;
    std::size_t started = 0;
    for (const std::size_t target : steps) {
        const auto began = std::chrono::steady_clock::now();
        while (ready + failed < target) {
            while (started < target && started - ready - failed < connectionsInFlight) {
                auto computer = std::make_shared<IdleComputer>(io, tls, tokens[started]);
                computer->start(sourceAddress(started), service.port(), [&](bool ok) { ++(ok ? ready : failed); });
                computers.push_back(computer);
                ++started;
            }
            io.restart();
            io.run_one();
        }
        const double openSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
        runFor(io, std::chrono::seconds(3)); // let both sides settle before reading memory
        const long resident = residentKiB(service.pid());
        std::printf("%12zu %14.1f %18.1f %10zu %12.1f\n", ready, resident / 1024.0,
                    ready ? double(resident - baseline) / double(ready) : 0.0, failed, openSeconds);
        std::fflush(stdout);
        if (failed > 0) {
            break;
        }
    }
    // Idle for a while past the service's ping interval: every socket must still be there.
    runFor(io, std::chrono::seconds(35));
    const auto stillOpen = std::count_if(computers.begin(), computers.end(), [](const auto& c) { return c->isOpen(); });
    std::printf("after 35 s idle (past the service's 30 s ping): service %.1f MiB, sockets still open: %zd of %zu\n",
                residentKiB(service.pid()) / 1024.0, stillOpen, ready);
    for (const auto& computer : computers) {
        computer->close();
    }
    return 0;
}
