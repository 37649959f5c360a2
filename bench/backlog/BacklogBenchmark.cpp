// The service's memory under one abuse of its delivery: a computer with 1,000 waiting texts of 40 KB
// opens 20 WebSockets one after the other and reads none of them. The service runs as its own process;
// its peak resident memory (VmHWM) is read from /proc. Prints figures; never fails a test run.
#include "Secrets.h"
#include "ServiceProcess.h"
#include "SqliteStorage.h"
#include "TempFolder.h"

#include <boost/asio/ssl.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/ssl.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/beast/websocket/ssl.hpp>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using namespace keyferry::service;

namespace {

namespace beast = boost::beast;
namespace ssl = boost::asio::ssl;
namespace websocket = beast::websocket;
using Socket = websocket::stream<beast::ssl_stream<beast::tcp_stream>>;

constexpr int waitingTexts = 1'000;
constexpr int sockets = 20;
constexpr double targetMiB = 100;

// A field of /proc/PID/status in MiB ("VmRSS", "VmHWM"), or -1 when it cannot be read.
double statusMiB(pid_t pid, const std::string& field) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.starts_with(field + ":")) {
            return std::stod(line.substr(field.size() + 1)) / 1024.0;
        }
    }
    return -1;
}

// 10,000 characters of four bytes each: the longest text a phone may send.
std::string longestText() {
    std::string text;
    for (int i = 0; i < 10'000; ++i) {
        text += "\xF0\x9F\x91\x8B";
    }
    return text;
}

// A paired computer whose phone's texts are already waiting, written straight into the service's
// database (as if sent while the computer was away); returns the computer's token.
std::string seedBacklog(const std::filesystem::path& folder, std::int64_t now) {
    std::filesystem::create_directories(folder);
    SqliteStorage storage((folder / "keyferry.sqlite3").string());
    const std::string token = Secrets::newToken("kfc_");
    const ComputerRecord computer{Secrets::newId(), "bench", "linux", ComputerStatus::active, now};
    const PhoneRecord phone{Secrets::newId(), computer.id, "phone", "web", "", now, now};
    const std::string text = longestText();
    storage.transaction([&] {
        storage.insertComputer(computer, Secrets::tokenHash(token));
        storage.insertPhone(phone, Secrets::tokenHash(Secrets::newToken("kfp_")));
        for (int i = 0; i < waitingTexts; ++i) {
            storage.insertText({0, Secrets::newId(), computer.id, phone.id, text, now, {}, {}});
        }
    });
    return token;
}

// Opens the computer's socket and then leaves it alone: nothing is read after the upgrade answer.
std::unique_ptr<Socket> openSilentSocket(boost::asio::io_context& io, ssl::context& tls, unsigned short port,
                                         const std::string& token) {
    auto socket = std::make_unique<Socket>(io, tls);
    beast::get_lowest_layer(*socket).connect({boost::asio::ip::make_address("127.0.0.1"), port});
    socket->next_layer().handshake(ssl::stream_base::client);
    socket->set_option(websocket::stream_base::decorator([token](websocket::request_type& request) {
        request.set(beast::http::field::authorization, "Bearer " + token);
    }));
    socket->handshake("localhost", "/v1/computers/connect");
    return socket;
}

} // namespace

int main() {
    TempFolder folder;
    const auto now =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch())
            .count();
    const std::string token = seedBacklog(folder.path(), now);
    ServiceProcess service(KEYFERRY_SERVICE_PROGRAM, folder.path());
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    std::printf("%d waiting texts of %zu bytes for one computer; %d sockets opened one after the other, none read\n",
                waitingTexts, longestText().size(), sockets);
    std::printf("service before: resident %.1f MiB, peak %.1f MiB\n", statusMiB(service.pid(), "VmRSS"),
                statusMiB(service.pid(), "VmHWM"));

    boost::asio::io_context io;
    ssl::context tls(ssl::context::tls_client);
    tls.load_verify_file(service.authority().string());
    tls.set_verify_mode(ssl::verify_peer);
    std::vector<std::unique_ptr<Socket>> opened;
    for (int i = 0; i < sockets; ++i) {
        opened.push_back(openSilentSocket(io, tls, service.port(), token));
        std::this_thread::sleep_for(std::chrono::milliseconds(250));
    }
    std::this_thread::sleep_for(std::chrono::seconds(3));
    const double peak = statusMiB(service.pid(), "VmHWM");
    std::printf("service after: resident %.1f MiB, peak %.1f MiB (target: under %.0f MiB: %s)\n",
                statusMiB(service.pid(), "VmRSS"), peak, targetMiB, peak < targetMiB ? "met" : "NOT met");
    return 0;
}
