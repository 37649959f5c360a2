#include "CompanionServiceHarness.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <deque>
#include <iostream>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace keyferry::harness {
namespace {

using State = CompanionConnectionState;
using Socket = fakes::ScriptedWebSocketTask;

// Places in a long session where stop() can be called.
enum class StopPoint { never, connecting, connected, reconnectPending, statusInFlight, pollInFlight };

const char* describe(StopPoint point) {
    switch (point) {
    case StopPoint::never:
        return "never";
    case StopPoint::connecting:
        return "connecting";
    case StopPoint::connected:
        return "connected";
    case StopPoint::reconnectPending:
        return "reconnectPending";
    case StopPoint::statusInFlight:
        return "statusInFlight";
    case StopPoint::pollInFlight:
        return "pollInFlight";
    }
    return "?";
}

constexpr std::size_t sessionMessages = 2000;
constexpr std::size_t keptIds = 200;

// A paired, trusted computer receiving texts over a connection that keeps failing, played with a fixed seed.
// The session keeps its own model of what the service must have typed, recorded and acknowledged, and
// checks the service against it after every step. Optionally stops the service at the n-th time the
// session reaches a given point, and then checks that nothing is left running.
class Session {
public:
    Session(std::uint32_t seed, StopPoint stopPoint = StopPoint::never, int occurrence = 0)
        : random(seed), stopAt(stopPoint), stopOccurrence(occurrence) {}

    void run() {
        h.startConnected();
        expectDelay = 1.0;
        while (messages < sessionMessages && !stopped && !::testing::Test::HasFatalFailure()) {
            step();
            expectAtMostOneOpenSocket();
        }
    }

    void expectEverythingTypedOnceInOrder() const {
        std::string expected;
        for (const auto& id : typedOrder) {
            expected += textOf(id);
        }
        EXPECT_EQ(h.keyboard.typedText(), expected);
        EXPECT_EQ(std::set<std::string>(typedOrder.begin(), typedOrder.end()).size(), typedOrder.size());
        EXPECT_TRUE(awaitingRedelivery.empty());
    }

    CompanionServiceHarness h;
    std::vector<std::string> typedOrder;
    std::vector<double> observedDelays;
    std::size_t messages = 0;
    std::size_t redeliveries = 0;
    std::size_t typingFailures = 0;
    std::size_t losses = 0;
    bool stopped = false;

private:
    bool chance(unsigned percent) { return random() % 100 < percent; }
    std::size_t pick(std::size_t count) { return random() % count; }
    static std::string textOf(const std::string& id) { return "<" + id + ">"; }

    void step() {
        const auto roll = random() % 100;
        if (roll < 80) {
            deliverMessage();
        } else if (roll < 86) {
            loseConnection(false);
        } else if (roll < 91) {
            loseConnection(true);
        } else if (roll < 95) {
            failTyping();
        } else if (roll < 97) {
            healthyPings();
        } else {
            addPhone();
        }
    }

    // True when the session stopped the service here.
    bool reached(StopPoint point) {
        if (point != stopAt || ++occurrences != stopOccurrence) {
            return false;
        }
        stopAndVerifyQuiet();
        stopped = true;
        return true;
    }

    std::string nextMessageId() {
        if (!awaitingRedelivery.empty()) {
            auto id = awaitingRedelivery.front();
            awaitingRedelivery.pop_front();
            return id;
        }
        return "m" + std::to_string(nextId++);
    }

    void deliverMessage() {
        auto& socket = h.lastSocket();
        ++messages;
        const auto sentBefore = socket.sentCount();
        const auto typedBefore = h.keyboard.typedText();
        if (awaitingRedelivery.empty() && !recorded.empty() && chance(10)) {
            // A re-delivery of one of the last 200 recorded ids: acknowledged, never typed again.
            const auto id = recorded[pick(recorded.size())];
            ++redeliveries;
            socket.deliverText(insertText(id, textOf(id)));
            h.settle();
            EXPECT_EQ(h.keyboard.typedText(), typedBefore) << id;
            expectAcknowledged(socket, sentBefore, id);
            return;
        }
        const auto id = nextMessageId();
        socket.deliverText(insertText(id, textOf(id)));
        h.settle();
        EXPECT_EQ(h.keyboard.typedText(), typedBefore + textOf(id));
        expectAcknowledged(socket, sentBefore, id);
        typedOrder.push_back(id);
        recorded.push_back(id);
        if (recorded.size() > keptIds) {
            recorded.pop_front();
        }
        EXPECT_EQ(h.processedIds(), std::vector<std::string>(recorded.begin(), recorded.end()));
    }

    static void expectAcknowledged(const Socket& socket, std::size_t sentBefore, const std::string& id) {
        ASSERT_EQ(socket.sentCount(), sentBefore + 1) << id;
        EXPECT_EQ(ackedIds(socket).back(), id);
    }

    void failTyping() {
        auto& socket = h.lastSocket();
        ++messages;
        ++typingFailures;
        const auto id = nextMessageId();
        const auto sentBefore = socket.sentCount();
        const auto typedBefore = h.keyboard.typedText();
        h.keyboard.failAtPost(1);
        socket.deliverText(insertText(id, textOf(id)));
        h.settle();
        EXPECT_EQ(h.keyboard.typedText(), typedBefore);
        EXPECT_EQ(socket.sentCount(), sentBefore) << "a text that was not typed is not acknowledged";
        EXPECT_EQ(socket.cancelCloseCodes(), std::vector<int>{1001});
        EXPECT_EQ(h.states.back(), State::permissionRequired);
        EXPECT_EQ(std::ranges::count(h.processedIds(), id), 0);
        awaitingRedelivery.push_front(id); // the service will offer it again first
        h.service->resumeAfterAccessibilityPermission();
        h.settle();
        openedNewSocket();
        if (reached(StopPoint::connecting)) {
            return;
        }
        confirm();
    }

    void healthyPings() {
        auto& socket = h.lastSocket();
        h.advance(20.0);
        EXPECT_GE(socket.pendingPingCount(), 1u);
        while (socket.pendingPingCount() > 0) {
            socket.answerPing();
        }
        h.settle();
        EXPECT_EQ(h.states.back(), State::connected);
    }

    void addPhone() {
        h.service->requestPairingCode();
        h.settle();
        h.respond(codePath, 200, pairingReply(std::nullopt, static_cast<std::int64_t>((h.clock.now() + 600) * 1000)));
        h.advance(1.8);
        if (reached(StopPoint::pollInFlight)) {
            return;
        }
        h.respond(statusPath, 200, statusReply("pending", false));
        h.respond(phonesPath, 200, phonesReply({phone("p1"), phone("p2")}));
    }

    void loseConnection(bool byPing) {
        ++losses;
        auto* lost = &h.lastSocket();
        if (byPing) {
            h.advance(20.0);
            lost->answerPing(WebSocketError{"no pong"});
        } else {
            lost->deliverError();
        }
        dead.insert(lost);
        h.settle();
        while (true) {
            if (reached(StopPoint::statusInFlight)) {
                return;
            }
            answerStatusCheck();
            const auto deadline = h.queue.nextDelayedDeadline();
            EXPECT_TRUE(deadline.has_value());
            const double delay = deadline.value_or(0.0) - h.queue.now();
            observedDelays.push_back(delay);
            EXPECT_DOUBLE_EQ(delay, expectDelay) << "back-off after " << observedDelays.size() << " delays";
            expectDelay = std::min(expectDelay * 2.0, 15.0);
            EXPECT_EQ(h.states.back(), State::reconnecting);
            if (reached(StopPoint::reconnectPending)) {
                return;
            }
            h.advance(delay);
            openedNewSocket();
            if (chance(50)) {
                lost->failAllPending(); // the old socket's late failures change nothing
                h.settle();
            }
            if (reached(StopPoint::connecting)) {
                return;
            }
            if (!chance(30)) {
                break;
            }
            lost = &h.lastSocket(); // this attempt fails too
            lost->deliverError();
            dead.insert(lost);
            h.settle();
        }
        confirm();
    }

    void answerStatusCheck() {
        EXPECT_EQ(h.http.oldestPendingFor(statusPath).has_value(), true);
        const auto roll = random() % 10;
        if (roll < 6) {
            h.respond(statusPath, 200, statusReply("active", std::nullopt, std::nullopt, true));
        } else if (roll < 8) {
            h.respond(statusPath, 500, R"({"error":"unavailable"})");
        } else {
            h.failTransport(statusPath);
        }
    }

    void openedNewSocket() {
        ASSERT_GE(h.sockets.taskCount(), 2u);
        const auto& previous = *h.sockets.tasks()[h.sockets.taskCount() - 2];
        EXPECT_TRUE(previous.wasCancelled() || dead.contains(&previous)) << "two sockets open at once";
        EXPECT_TRUE(h.lastSocket().wasResumed());
    }

    void confirm() {
        h.lastSocket().deliverText(R"({"type":"connected"})");
        h.settle();
        expectDelay = 1.0; // a confirmed connection starts the next series at one second
        h.respond(phonesPath, 200, phonesReply({phone("p1")}));
        EXPECT_EQ(h.states.back(), State::connected);
        reached(StopPoint::connected);
    }

    void expectAtMostOneOpenSocket() const {
        const auto open = std::ranges::count_if(h.sockets.tasks(), [this](const auto& socket) {
            return !socket->wasCancelled() && !dead.contains(socket.get());
        });
        EXPECT_LE(open, 1);
    }

    // After stop(): every late answer and socket failure arrives, time passes, and nothing comes alive.
    void stopAndVerifyQuiet() {
        const auto socketsBefore = h.sockets.taskCount();
        const auto requestsBefore = h.http.requestCount();
        const auto current = std::ranges::find_if(h.sockets.tasks(), [this](const auto& socket) {
            return !socket->wasCancelled() && !dead.contains(socket.get());
        });
        h.service->stop();
        h.settle();
        if (current != h.sockets.tasks().end()) {
            EXPECT_EQ((*current)->cancelCloseCodes(), std::vector<int>{1001});
        }
        h.clearRecords();
        for (const auto index : h.http.pending()) {
            const auto& pendingURL = h.http.request(index).url;
            if (fakes::ScriptedHttpClient::urlHasPath(pendingURL, statusPath)) {
                h.http.respond(index, 200, statusReply("active", true, std::nullopt, true));
            } else {
                h.http.respond(index, 200, phonesReply({}));
            }
        }
        for (const auto& socket : h.sockets.tasks()) {
            socket->failAllPending();
        }
        h.settle();
        h.advance(300.0);
        EXPECT_EQ(h.sockets.taskCount(), socketsBefore);
        EXPECT_EQ(h.http.requestCount(), requestsBefore);
        EXPECT_TRUE(h.states.empty());
        EXPECT_TRUE(h.errors.empty());
        EXPECT_EQ(h.queue.activeTimerCount(), 0u);
        EXPECT_EQ(h.queue.pendingDelayedCount(), 0u);
        EXPECT_EQ(h.textsInserted, 0);
        expectAtMostOneOpenSocket();
        EXPECT_TRUE(h.storeIsPaired());
    }

    std::mt19937 random;
    StopPoint stopAt;
    int stopOccurrence;
    int occurrences = 0;
    int nextId = 0;
    double expectDelay = 1.0;
    std::deque<std::string> recorded;
    std::deque<std::string> awaitingRedelivery;
    std::set<const Socket*> dead;
};

constexpr std::uint32_t sessionSeed = 20261121;

TEST(CompanionServiceSession, TwoThousandTextsThroughAFailingConnection) {
    Session session(sessionSeed);
    session.run();
    ASSERT_FALSE(::testing::Test::HasFailure());
    EXPECT_EQ(session.messages, sessionMessages);
    session.expectEverythingTypedOnceInOrder();
    // The session really went through what it claims to test.
    EXPECT_GT(session.redeliveries, 120u);
    EXPECT_GT(session.typingFailures, 40u);
    EXPECT_GT(session.losses, 150u);
    EXPECT_GT(std::ranges::count(session.observedDelays, 15.0), 0);
    EXPECT_GT(session.typedOrder.size(), sessionMessages - session.redeliveries - session.typingFailures - 1);
    std::cout << "messages " << session.messages << ", typed " << session.typedOrder.size() << ", re-deliveries "
              << session.redeliveries << ", typing failures " << session.typingFailures << ", losses " << session.losses
              << ", reconnection delays " << session.observedDelays.size() << ", sockets "
              << session.h.sockets.taskCount() << ", virtual seconds " << session.h.queue.now() << "\n";
}

struct StopCase {
    StopPoint point;
    int occurrence;
};

class CompanionServiceSessionStop : public ::testing::TestWithParam<StopCase> {};

TEST_P(CompanionServiceSessionStop, NothingIsLeftRunning) {
    Session session(sessionSeed, GetParam().point, GetParam().occurrence);
    session.run();
    EXPECT_TRUE(session.stopped) << "the session never reached " << describe(GetParam().point) << " #"
                                 << GetParam().occurrence;
}

std::vector<StopCase> stopCases() {
    std::vector<StopCase> cases;
    for (const auto point : {StopPoint::connecting, StopPoint::connected, StopPoint::reconnectPending,
                             StopPoint::statusInFlight, StopPoint::pollInFlight}) {
        for (const int occurrence : {1, 2, 7, 23, 51}) {
            cases.push_back({point, occurrence});
        }
    }
    return cases;
}

INSTANTIATE_TEST_SUITE_P(EveryPoint, CompanionServiceSessionStop, ::testing::ValuesIn(stopCases()),
                         [](const ::testing::TestParamInfo<StopCase>& param) {
                             return std::string(describe(param.param.point)) + "_" +
                                    std::to_string(param.param.occurrence);
                         });

} // namespace
} // namespace keyferry::harness
