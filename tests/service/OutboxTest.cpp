// Each computer socket holds little memory whatever the computer does: only a few texts go out ahead of
// the acknowledgements, and a replaced socket ends at once even when its peer reads nothing.
#include "ComputerSocket.h"
#include "Wait.h"
#include "WireTest.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

namespace keyferry::service {
namespace {

using namespace std::chrono_literals;

// Whether the kernel still lists an established TCP connection from 127.0.0.1:localPort to
// 127.0.0.1:remotePort (IPv4 table of this network namespace).
bool isEstablished(unsigned short localPort, unsigned short remotePort) {
    std::ifstream table("/proc/net/tcp");
    std::string line;
    std::getline(table, line); // the heading
    char wanted[64];
    std::snprintf(wanted, sizeof wanted, "0100007F:%04X 0100007F:%04X 01", localPort, remotePort);
    while (std::getline(table, line)) {
        if (line.find(wanted) != std::string::npos) {
            return true;
        }
    }
    return false;
}

class OutboxTest : public WireTest {
protected:
    // The texts that arrive until the socket stays quiet, none acknowledged.
    std::vector<std::string> readTexts(WebSocketClient& socket) { return WireTest::readTexts(socket, Acknowledge::no); }
};

TEST_F(OutboxTest, OnlyAFewTextsGoOutAheadOfTheAcknowledgements) {
    const auto [computer, phone] = pairedComputer();
    std::vector<std::string> sent;
    for (int i = 0; i < 10; ++i) {
        sent.push_back(sendText(phone, "text " + std::to_string(i)));
    }
    auto socket = connectComputer(computer);
    const auto ahead = readTexts(*socket);
    ASSERT_EQ(ahead.size(), ComputerSocket::textsAhead);
    EXPECT_TRUE(std::equal(ahead.begin(), ahead.end(), sent.begin()));

    socket->ack(ahead.front());
    const auto next = readTexts(*socket);
    ASSERT_EQ(next.size(), 1u);
    EXPECT_EQ(next.front(), sent[ComputerSocket::textsAhead]);
}

TEST_F(OutboxTest, TextsArrivingWhileTheWindowIsFullFollowTheAcknowledgements) {
    const auto [computer, phone] = pairedComputer();
    auto socket = connectComputer(computer);
    std::vector<std::string> sent;
    for (std::size_t i = 0; i < ComputerSocket::textsAhead + 2; ++i) {
        sent.push_back(sendText(phone, "live " + std::to_string(i)));
    }
    std::vector<std::string> received = readTexts(*socket);
    ASSERT_EQ(received.size(), ComputerSocket::textsAhead);
    for (std::size_t i = 0; received.size() < sent.size() && i < sent.size(); ++i) {
        socket->ack(received[i]);
        const auto more = readTexts(*socket);
        received.insert(received.end(), more.begin(), more.end());
    }
    EXPECT_EQ(received, sent);
}

TEST_F(OutboxTest, AReplacedSocketEndsAtOnceEvenWhenItsPeerReadsNothing) {
    const auto [computer, phone] = pairedComputer();
    for (int i = 0; i < 8; ++i) {
        sendText(phone, std::string(2'000, 'x'));
    }
    auto silent = connectComputer(computer); // from here on it reads nothing
    const unsigned short silentPort = silent->localPort();
    ASSERT_TRUE(isEstablished(server->port(), silentPort));
    auto newer = connectComputer(computer);

    EXPECT_TRUE(testing::waitUntil([&] { return !isEstablished(server->port(), silentPort); }, 3s))
        << "the service still holds the replaced connection after 3 s";
}

} // namespace
} // namespace keyferry::service
