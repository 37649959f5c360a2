#include "CompanionServiceHarness.h"

#include <gtest/gtest.h>

#include <functional>

namespace keyferry::harness {
namespace {

using State = CompanionConnectionState;

class CompanionServiceStateTest : public ::testing::Test, protected CompanionServiceHarness {};

TEST_F(CompanionServiceStateTest, ConstructionStartsNothing) {
    settle();
    EXPECT_EQ(http.requestCount(), 0u);
    EXPECT_EQ(sockets.taskCount(), 0u);
    EXPECT_EQ(queue.activeTimerCount(), 0u);
    EXPECT_EQ(queue.pendingDelayedCount(), 0u);
    EXPECT_EQ(mainThread.postedCount(), 0u);
    EXPECT_EQ(accessibility.callCount(), 0u);
}

TEST_F(CompanionServiceStateTest, PublicOperationsOnlyEnqueue) {
    plantPairing();
    service->start();
    service->refreshPhones();
    service->requestPairingCode();
    service->removePhone("p1");
    service->resumeAfterAccessibilityPermission();
    service->stop();
    EXPECT_EQ(queue.pendingTaskCount(), 6u);
    EXPECT_EQ(http.requestCount(), 0u);
    EXPECT_EQ(sockets.taskCount(), 0u);
    EXPECT_EQ(accessibility.callCount(), 0u);
}

TEST_F(CompanionServiceStateTest, CallbacksWaitForTheMainThread) {
    plantPairing();
    service->start();
    queue.runUntilIdle();
    EXPECT_EQ(sockets.taskCount(), 1u);
    EXPECT_TRUE(states.empty());
    EXPECT_EQ(mainThread.pendingCount(), 1u);
    mainThread.drain();
    EXPECT_EQ(states, std::vector<State>{State::connecting});
}

TEST_F(CompanionServiceStateTest, EachReportCarriesTheStateOfItsMoment) {
    plantPairing();
    service->start();
    queue.runUntilIdle();
    lastSocket().deliverText(R"({"type":"connected"})");
    queue.runUntilIdle();
    // Both changes happened before the main thread ran: each report still carries its own value.
    mainThread.drain();
    EXPECT_EQ(states, (std::vector<State>{State::connecting, State::connected}));
}

TEST_F(CompanionServiceStateTest, AnEqualStateIsNotReportedTwice) {
    auto& socket = startConnected();
    socket.deliverText(R"({"type":"connected"})");
    settle();
    socket.deliverText(R"({"type":"connected"})");
    settle();
    EXPECT_EQ(states, (std::vector<State>{State::connecting, State::connected}));
}

TEST_F(CompanionServiceStateTest, UnsetCallbacksAreSkipped) {
    service->onStateChange = nullptr;
    service->onPhonesChanged = nullptr;
    service->onTextInserted = nullptr;
    auto& socket = startConnected();
    socket.deliverText(insertText("A", "hello"));
    settle();
    EXPECT_EQ(keyboard.typedText(), "hello");
    EXPECT_TRUE(states.empty());
    EXPECT_TRUE(phoneLists.empty());
    EXPECT_EQ(textsInserted, 0);
    EXPECT_EQ(ackedIds(socket), std::vector<std::string>{"A"});
}

TEST_F(CompanionServiceStateTest, EveryReportWithoutItsCallbackIsDropped) {
    service->onStateChange = nullptr;
    service->onPairCode = nullptr;
    service->onPairingCompleted = nullptr;
    service->onPhonesChanged = nullptr;
    service->onAccessibilityNeeded = nullptr;
    service->onTextInserted = nullptr;
    service->onError = nullptr;
    service->requestPairingCode(); // a state, a code
    settle();
    respond(startPath, 200, pairingReply("fresh-token", 1'800'000'600'000));
    advance(1.8);
    respond(statusPath, 200, statusReply("active"));      // the pairing completed
    respond(phonesPath, 200, phonesReply({phone("p1")})); // a phone list
    lastSocket().deliverText(insertText("A", "typed"));   // a text inserted
    settle();
    keyboard.failAtPost(1);
    lastSocket().deliverText(insertText("B", "not typed")); // the permission needed
    settle();
    service->removePhone("p1");
    settle();
    respond(removePath, 500, "{}"); // an error
    EXPECT_EQ(keyboard.typedText(), "typed");
    EXPECT_EQ(processedIds(), std::vector<std::string>{"A"});
    EXPECT_GE(mainThread.postedCount(), 8u);
    EXPECT_TRUE(events.empty());
}

TEST_F(CompanionServiceStateTest, StartWhileUnpairedAndAlreadyUnpairedReportsNothing) {
    service->start();
    settle();
    EXPECT_TRUE(events.empty());
    EXPECT_EQ(http.requestCount(), 0u);
    EXPECT_EQ(sockets.taskCount(), 0u);
}

TEST_F(CompanionServiceStateTest, StopLeavesTheStateAsItWas) {
    auto& socket = connected();
    service->stop();
    settle();
    EXPECT_TRUE(states.empty());
    EXPECT_EQ(socket.cancelCloseCodes(), std::vector<int>{1001});
}

TEST_F(CompanionServiceStateTest, LateSocketAndTimerEventsAfterStopChangeNothing) {
    auto& socket = startConnected();
    advance(20.0); // a ping is on its way
    ASSERT_EQ(socket.pendingPingCount(), 1u);
    clearRecords();
    const auto requestsBefore = http.requestCount();
    service->stop();
    settle();
    socket.answerPing(WebSocketError{"Socket is not connected"});
    socket.deliverError();
    settle();
    advance(120.0);
    EXPECT_TRUE(events.empty());
    EXPECT_EQ(http.requestCount(), requestsBefore);
    EXPECT_EQ(sockets.taskCount(), 1u);
    EXPECT_EQ(socket.pingCount(), 1u);
    EXPECT_EQ(queue.activeTimerCount(), 0u);
    EXPECT_EQ(queue.pendingDelayedCount(), 0u);
}

TEST_F(CompanionServiceStateTest, ResumeAfterStopDoesNotConnect) {
    plantPairing();
    service->stop();
    service->resumeAfterAccessibilityPermission();
    settle();
    EXPECT_EQ(sockets.taskCount(), 0u);
    EXPECT_TRUE(states.empty());
}

TEST_F(CompanionServiceStateTest, StartClearsStopped) {
    plantPairing();
    service->stop();
    service->start();
    settle();
    EXPECT_EQ(sockets.taskCount(), 1u);
    EXPECT_EQ(states, std::vector<State>{State::connecting});
}

TEST_F(CompanionServiceStateTest, ResumeWhileUnpairedReportsUnpaired) {
    startConnected();
    secrets.remove(tokenQuery()); // the pairing is gone from under the service
    clearRecords();
    service->resumeAfterAccessibilityPermission();
    settle();
    EXPECT_EQ(states, std::vector<State>{State::unpaired});
}

TEST_F(CompanionServiceStateTest, ReportsOfADestroyedServiceAreDropped) {
    plantPairing();
    service->start();
    queue.runUntilIdle();
    std::weak_ptr<CompanionService> watcher = service;
    service.reset();
    EXPECT_TRUE(watcher.expired());
    mainThread.drain();
    advance(60.0);
    EXPECT_TRUE(events.empty());
}

TEST_F(CompanionServiceStateTest, PendingWorkAndRequestsDoNotKeepTheServiceAlive) {
    auto& socket = connected();
    service->requestPairingCode();
    settle();
    respond(codePath, 200, pairingReply(std::nullopt, 1'800'000'600'000)); // a poll pass waits 1.8 s
    socket.deliverError();
    settle();
    respond(statusPath, 200, statusReply("active")); // a reconnection waits 1 s
    service->refreshPhones();
    settle(); // a phone list request is in flight
    ASSERT_EQ(queue.pendingDelayedCount(), 2u);
    clearRecords();
    const auto requestsBefore = http.requestCount();

    const std::weak_ptr<CompanionService> watcher = service;
    service.reset();
    EXPECT_TRUE(watcher.expired());
    respond(phonesPath, 200, phonesReply({phone("p1")}));
    advance(60.0);
    EXPECT_TRUE(events.empty());
    EXPECT_EQ(http.requestCount(), requestsBefore);
    EXPECT_EQ(sockets.taskCount(), 1u);
}

TEST_F(CompanionServiceStateTest, AnOpenSocketsTimerAndCompletionsDoNotKeepTheServiceAlive) {
    auto& socket = connected();
    advance(20.0); // a ping waits for its pong, a receive for its frame
    ASSERT_EQ(socket.pendingPingCount(), 1u);
    ASSERT_TRUE(socket.hasPendingReceive());

    const std::weak_ptr<CompanionService> watcher = service;
    service.reset();
    EXPECT_TRUE(watcher.expired());
    socket.answerPing(WebSocketError{"no pong"});
    socket.deliverText(insertText("A", "late"));
    advance(60.0);
    EXPECT_EQ(keyboard.attempts(), 0u);
    EXPECT_EQ(socket.sentCount(), 0u);
    EXPECT_EQ(socket.pingCount(), 1u);
    EXPECT_EQ(requestsTo(statusPath), 0u);
    EXPECT_TRUE(events.empty());
}

// The typical sequences of the connection, as the shell sees them.
struct Sequence {
    const char* event;
    std::function<void(CompanionServiceHarness&)> play;
    std::vector<State> expected;
};

void loseConnection(CompanionServiceHarness& harness) {
    harness.lastSocket().deliverError();
    harness.settle();
}

void confirm(CompanionServiceHarness& harness) {
    harness.lastSocket().deliverText(R"({"type":"connected"})");
    harness.settle();
}

std::function<void(CompanionServiceHarness&)> lossAnsweredWith(int status, std::string body) {
    return [status, body](CompanionServiceHarness& h) {
        h.connected();
        loseConnection(h);
        h.respond(statusPath, status, body);
    };
}

const std::vector<Sequence>& sequences() {
    static const std::vector<Sequence> all{
        {"start, paired, trusted, service confirms",
         [](CompanionServiceHarness& h) {
             h.plantPairing();
             h.service->start();
             h.settle();
             confirm(h);
         },
         {State::connecting, State::connected}},
        {"connection lost, pairing still valid",
         [](CompanionServiceHarness& h) {
             h.connected();
             loseConnection(h);
             EXPECT_TRUE(h.states.empty()) << "no change while the status is checked";
             h.respond(statusPath, 200, statusReply("active"));
             h.advance(1.0);
             EXPECT_EQ(h.sockets.taskCount(), 2u);
             confirm(h);
         },
         {State::reconnecting, State::connected}},
        {"connection lost, status revoked", lossAnsweredWith(200, statusReply("revoked")), {State::unpaired}},
        {"connection lost, status expired", lossAnsweredWith(200, statusReply("expired")), {State::unpaired}},
        {"connection lost, HTTP 401", lossAnsweredWith(401, R"({"error":"unauthorized"})"), {State::unpaired}},
        {"permission missing at connect time",
         [](CompanionServiceHarness& h) {
             h.plantPairing();
             h.accessibility.trusted = false;
             h.service->start();
             h.settle();
         },
         {State::permissionRequired}},
        {"typing fails",
         [](CompanionServiceHarness& h) {
             h.connected();
             h.keyboard.failAtPost(1);
             h.lastSocket().deliverText(insertText("A", "text"));
             h.settle();
         },
         {State::permissionRequired}},
        {"permission granted later",
         [](CompanionServiceHarness& h) {
             h.plantPairing();
             h.accessibility.trusted = false;
             h.service->start();
             h.settle();
             h.clearRecords();
             h.accessibility.trusted = true;
             h.service->resumeAfterAccessibilityPermission();
             h.settle();
             confirm(h);
         },
         {State::connecting, State::connected}},
        {"permission granted later, within a back-off series",
         [](CompanionServiceHarness& h) {
             h.startConnected();
             loseConnection(h);
             h.respond(statusPath, 200, statusReply("active"));
             h.advance(1.0); // an attempt of the series, not yet confirmed
             h.keyboard.failAtPost(1);
             h.lastSocket().deliverText(insertText("A", "text"));
             h.settle();
             h.clearRecords();
             h.service->resumeAfterAccessibilityPermission();
             h.settle();
             confirm(h);
         },
         {State::reconnecting, State::connected}},
    };
    return all;
}

class CompanionServiceSequenceTest : public ::testing::TestWithParam<std::size_t> {};

TEST_P(CompanionServiceSequenceTest, ReportsExactlyTheseStatesInOrder) {
    const auto& sequence = sequences()[GetParam()];
    SCOPED_TRACE(sequence.event);
    CompanionServiceHarness harness;
    sequence.play(harness);
    std::vector<std::string> names;
    for (const auto state : harness.states) {
        names.emplace_back(name(state));
    }
    std::vector<std::string> expected;
    for (const auto state : sequence.expected) {
        expected.emplace_back(name(state));
    }
    EXPECT_EQ(names, expected);
}

INSTANTIATE_TEST_SUITE_P(TypicalSequences, CompanionServiceSequenceTest,
                         ::testing::Range<std::size_t>(0, sequences().size()));

} // namespace
} // namespace keyferry::harness
