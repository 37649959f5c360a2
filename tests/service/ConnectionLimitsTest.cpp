// Connections are shared fairly: one client address holding many idle connections neither exhausts the
// service's descriptors nor keeps another client waiting. The abuser connects from 127.0.0.2 (the whole
// of 127.0.0.0/8 is this machine), the normal client from 127.0.0.1.
#include "ServiceProcess.h"
#include "TempFolder.h"
#include "Wait.h"

#include <boost/asio/connect.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fstream>
#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace keyferry::service {
namespace {

namespace beast = boost::beast;
namespace http = beast::http;
namespace ssl = boost::asio::ssl;
using namespace std::chrono_literals;

const std::filesystem::path program = KEYFERRY_SERVICE_PROGRAM;

void setOpenFileLimit(rlim_t soft) {
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    limit.rlim_cur = std::min(soft, limit.rlim_max);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
}

// TCP connections from one loopback address that send nothing; closed on destruction.
class IdleConnections {
public:
    IdleConnections(const char* from, unsigned short port, int count) {
        for (int i = 0; i < count; ++i) {
            const int fd = socket(AF_INET, SOCK_STREAM, 0);
            EXPECT_GE(fd, 0) << "socket " << i;
            if (fd < 0) {
                return;
            }
            sockaddr_in local{};
            local.sin_family = AF_INET;
            inet_pton(AF_INET, from, &local.sin_addr);
            sockaddr_in service = local;
            inet_pton(AF_INET, "127.0.0.1", &service.sin_addr);
            service.sin_port = htons(port);
            EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&local), sizeof local), 0);
            EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&service), sizeof service), 0) << "connection " << i;
            fds_.push_back(fd);
        }
    }
    ~IdleConnections() {
        for (const int fd : fds_) {
            close(fd);
        }
    }
    IdleConnections(const IdleConnections&) = delete;
    IdleConnections& operator=(const IdleConnections&) = delete;

    // How many the service has closed, once that number stops changing for half a second (up to 10 s).
    std::size_t closedByService() const {
        return testing::waitUntilSteady([this] { return countClosed(); }, fds_.size() + 1, 500ms, 10s);
    }

private:
    std::size_t countClosed() const {
        std::size_t closed = 0;
        for (const int fd : fds_) {
            pollfd entry{fd, POLLIN, 0};
            char byte = 0;
            if (poll(&entry, 1, 0) == 1 && recv(fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT) <= 0) {
                ++closed;
            }
        }
        return closed;
    }

    std::vector<int> fds_;
};

// A GET of "/" over TLS from `from`, with everything done within `limit`: the status, or 0.
int timedGet(const std::filesystem::path& authority, unsigned short port, const char* from,
             std::chrono::milliseconds limit) {
    boost::asio::io_context io;
    ssl::context tls(ssl::context::tls_client);
    tls.load_verify_file(authority.string());
    tls.set_verify_mode(ssl::verify_peer);
    ssl::stream<boost::asio::ip::tcp::socket> stream(io, tls);
    stream.next_layer().open(boost::asio::ip::tcp::v4());
    stream.next_layer().bind({boost::asio::ip::make_address(from), 0});
    http::request<http::empty_body> request{http::verb::get, "/", 11};
    request.set(http::field::host, "localhost");
    beast::flat_buffer buffer;
    http::response<http::string_body> response;
    int status = 0;
    stream.next_layer().async_connect({boost::asio::ip::make_address("127.0.0.1"), port}, [&](beast::error_code error) {
        if (error) {
            return;
        }
        stream.async_handshake(ssl::stream_base::client, [&](beast::error_code handshakeError) {
            if (handshakeError) {
                return;
            }
            http::async_write(stream, request, [&](beast::error_code writeError, std::size_t) {
                if (writeError) {
                    return;
                }
                http::async_read(stream, buffer, response, [&](beast::error_code readError, std::size_t) {
                    status = readError ? 0 : static_cast<int>(response.result_int());
                });
            });
        });
    });
    io.run_for(limit);
    return status;
}

// A TLS connection from `from` that completes its handshake and then stays idle; nothing when refused.
std::unique_ptr<ssl::stream<boost::asio::ip::tcp::socket>>
handshakenConnection(boost::asio::io_context& io, ssl::context& tls, const char* from, unsigned short port) {
    auto stream = std::make_unique<ssl::stream<boost::asio::ip::tcp::socket>>(io, tls);
    stream->next_layer().open(boost::asio::ip::tcp::v4());
    stream->next_layer().bind({boost::asio::ip::make_address(from), 0});
    stream->next_layer().connect({boost::asio::ip::make_address("127.0.0.1"), port});
    boost::system::error_code error;
    stream->handshake(ssl::stream_base::client, error);
    return error ? nullptr : std::move(stream);
}

std::string openFilesLine(pid_t pid) {
    std::ifstream limits("/proc/" + std::to_string(pid) + "/limits");
    for (std::string line; std::getline(limits, line);) {
        if (line.starts_with("Max open files")) {
            return line;
        }
    }
    return {};
}

TEST(ConnectionLimitsTest, ANormalClientIsServedWhileOneAddressHoldsManyIdleConnections) {
    // The service starts with the usual soft limit of 1,024 descriptors, whatever this runner allows.
    setOpenFileLimit(1024);
    TempFolder folder;
    ServiceProcess service(program, folder.path());
    setOpenFileLimit(RLIM_INFINITY);

    std::istringstream limits(openFilesLine(service.pid()).substr(std::string("Max open files").size()));
    std::string soft;
    std::string hard;
    limits >> soft >> hard;
    EXPECT_EQ(soft, hard) << "the service raises its soft descriptor limit to the hard one";

    IdleConnections abuser("127.0.0.2", service.port(), 1100);
    EXPECT_GE(abuser.closedByService(), 1000u);
    EXPECT_EQ(timedGet(service.authority(), service.port(), "127.0.0.1", 5s), 200);
}

TEST(ConnectionLimitsTest, ConnectionsAndHandshakesPerClientAddressAreCapped) {
    TempFolder folder;
    ServiceProcess service(program, folder.path(),
                           {"--max-connections-per-client", "10", "--max-handshakes-per-client", "4"});
    {
        IdleConnections silent("127.0.0.3", service.port(), 12);
        EXPECT_EQ(silent.closedByService(), 8u) << "only four handshakes may wait at once";
    }
    boost::asio::io_context io;
    ssl::context tls(ssl::context::tls_client);
    tls.load_verify_file(service.authority().string());
    std::vector<std::unique_ptr<ssl::stream<boost::asio::ip::tcp::socket>>> held;
    for (int i = 0; i < 10; ++i) {
        held.push_back(handshakenConnection(io, tls, "127.0.0.4", service.port()));
        ASSERT_TRUE(held.back()) << "connection " << i;
    }
    EXPECT_FALSE(handshakenConnection(io, tls, "127.0.0.4", service.port())) << "the eleventh is refused";
    EXPECT_EQ(timedGet(service.authority(), service.port(), "127.0.0.5", 5s), 200);
    held.pop_back();
    held.pop_back();
    // The service notices the two closed connections as soon as it reads their end.
    bool servedAgain = false;
    for (const auto deadline = std::chrono::steady_clock::now() + 5s;
         !servedAgain && std::chrono::steady_clock::now() < deadline;) {
        servedAgain = handshakenConnection(io, tls, "127.0.0.4", service.port()) != nullptr;
    }
    EXPECT_TRUE(servedAgain) << "a freed place is taken again";
}

} // namespace
} // namespace keyferry::service
