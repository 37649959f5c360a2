#include "CompanionServiceHarness.h"

#include <gtest/gtest.h>

namespace keyferry::harness {
namespace {

using State = CompanionConnectionState;

class CompanionServiceConnectionTest : public ::testing::Test, protected CompanionServiceHarness {
protected:
    // The socket is lost and, while its status check is still open, a new one is opened.
    fakes::ScriptedWebSocketTask& loseAndReopenBeforeTheStatusAnswer(fakes::ScriptedWebSocketTask& lost) {
        lost.deliverError();
        settle();
        service->resumeAfterAccessibilityPermission();
        settle();
        EXPECT_EQ(sockets.taskCount(), 2u);
        return lastSocket();
    }

    // Fails the current socket and answers the status check so that a reconnection is scheduled; returns
    // the seconds until the next socket is made.
    double failAndMeasureDelay() {
        const auto made = sockets.taskCount();
        lastSocket().deliverError();
        settle();
        respond(statusPath, 200, statusReply("active"));
        const auto deadline = queue.nextDelayedDeadline();
        EXPECT_TRUE(deadline.has_value());
        const double delay = deadline.value_or(0.0) - queue.now();
        advance(delay - 0.001);
        EXPECT_EQ(sockets.taskCount(), made) << "no attempt before the delay";
        advance(0.001);
        EXPECT_EQ(sockets.taskCount(), made + 1) << "an attempt when the delay is over";
        return delay;
    }

    void expectWithdrawn() {
        EXPECT_FALSE(storeIsPaired());
        EXPECT_FALSE(storedCredential().has_value());
        EXPECT_EQ(states, std::vector<State>{State::unpaired});
        EXPECT_EQ(events, (std::vector<std::string>{"state:unpaired", "phones:0",
                                                    "error:This computer was removed from your paired computers."}));
        EXPECT_EQ(queue.pendingDelayedCount(), 0u);
    }
};

TEST_F(CompanionServiceConnectionTest, PingsEveryTwentySecondsExactly) {
    auto& socket = connected();
    advance(19.999);
    EXPECT_EQ(socket.pingCount(), 0u);
    advance(0.001);
    EXPECT_EQ(socket.pingCount(), 1u);
    socket.answerPing(); // a pong: nothing happens
    settle();
    advance(20.0);
    EXPECT_EQ(socket.pingCount(), 2u);
    socket.answerPing();
    advance(60.0);
    EXPECT_EQ(socket.pingCount(), 5u);
    EXPECT_TRUE(events.empty());
    EXPECT_EQ(requestsTo(statusPath), 0u);
}

TEST_F(CompanionServiceConnectionTest, APingThatFailsIsAConnectionLoss) {
    auto& socket = connected();
    advance(20.0);
    socket.answerPing(WebSocketError{"pong timed out"});
    settle();
    ASSERT_EQ(requestsTo(statusPath), 1u);
    const auto& request = http.request(http.indicesForPath(statusPath)[0]);
    EXPECT_EQ(request.method, "GET");
    EXPECT_EQ(request.url, url(statusPath));
    EXPECT_EQ(request.headers, (HttpHeaders{{"Authorization", "Bearer token-1"}}));
    EXPECT_FALSE(request.body.has_value());
    EXPECT_EQ(queue.activeTimerCount(), 0u);
    EXPECT_TRUE(states.empty()); // no change while the status is checked
}

TEST_F(CompanionServiceConnectionTest, OnlyTheFirstOfTwoFailuresOfOneSocketCounts) {
    auto& socket = connected();
    advance(20.0);
    socket.deliverError();
    settle();
    socket.answerPing(WebSocketError{"Socket is not connected"});
    settle();
    EXPECT_EQ(requestsTo(statusPath), 1u);
    respond(statusPath, 200, statusReply("active"));
    EXPECT_EQ(queue.pendingDelayedCount(), 1u);
    EXPECT_EQ(states, std::vector<State>{State::reconnecting});
}

TEST_F(CompanionServiceConnectionTest, AttemptsBackOffOneTwoFourEightFifteen) {
    connected();
    std::vector<double> delays;
    for (int attempt = 0; attempt < 7; ++attempt) {
        delays.push_back(failAndMeasureDelay());
    }
    EXPECT_EQ(delays, (std::vector<double>{1, 2, 4, 8, 15, 15, 15}));
    EXPECT_EQ(requestsTo(statusPath), 7u); // each attempt costs one status request
    // A back-off series reads as reconnecting throughout.
    EXPECT_EQ(states, std::vector<State>{State::reconnecting});
}

TEST_F(CompanionServiceConnectionTest, ConnectedResetsTheNextSeries) {
    connected();
    failAndMeasureDelay();
    failAndMeasureDelay();
    failAndMeasureDelay();
    lastSocket().deliverText(R"({"type":"connected"})");
    settle();
    EXPECT_DOUBLE_EQ(failAndMeasureDelay(), 1.0);
    EXPECT_DOUBLE_EQ(failAndMeasureDelay(), 2.0);
    EXPECT_EQ(states, (std::vector<State>{State::reconnecting, State::connected, State::reconnecting}));
}

TEST_F(CompanionServiceConnectionTest, AnUnconfirmedSocketKeepsTheSeriesGrowing) {
    connected();
    failAndMeasureDelay();
    // The attempt opens but the service never says "connected".
    advance(20.0);
    lastSocket().answerPing(WebSocketError{"no pong"});
    settle();
    respond(statusPath, 200, statusReply("active"));
    EXPECT_DOUBLE_EQ(queue.nextDelayedDeadline().value() - queue.now(), 2.0);
}

TEST_F(CompanionServiceConnectionTest, RevokedOrExpiredWithdrawsThePairing) {
    for (const char* status : {"revoked", "expired"}) {
        SCOPED_TRACE(status);
        CompanionServiceHarness fresh;
        fresh.startConnected();
        fresh.clearRecords();
        fresh.lastSocket().deliverError();
        fresh.settle();
        // "paired" true does not matter: only "status" decides.
        fresh.respond(statusPath, 200, statusReply(status, std::nullopt, std::nullopt, true));
        EXPECT_FALSE(fresh.storeIsPaired());
        EXPECT_EQ(fresh.events,
                  (std::vector<std::string>{"state:unpaired", "phones:0",
                                            "error:This computer was removed from your paired computers."}));
        EXPECT_EQ(fresh.queue.pendingDelayedCount(), 0u);
    }
}

TEST_F(CompanionServiceConnectionTest, Http401WithdrawsThePairing) {
    auto& socket = connected();
    defaults.setStringArray("quillix.processedMessageIds", {"A"});
    socket.deliverError();
    settle();
    respond(statusPath, 401, R"({"error":"unknown computer"})");
    expectWithdrawn();
    EXPECT_FALSE(defaults.contains("quillix.processedMessageIds"));
    advance(60.0);
    EXPECT_EQ(sockets.taskCount(), 1u);
}

TEST_F(CompanionServiceConnectionTest, OtherAnswersLeadToAReconnectionNotToUnpairing) {
    struct Answer {
        const char* what;
        std::function<void(CompanionServiceHarness&)> give;
    };
    const std::vector<Answer> answers{
        {"403", [](CompanionServiceHarness& h) { h.respond(statusPath, 403, "{}"); }},
        {"500", [](CompanionServiceHarness& h) { h.respond(statusPath, 500, R"({"error":"down"})"); }},
        {"no network", [](CompanionServiceHarness& h) { h.failTransport(statusPath); }},
        {"not HTTP",
         [](CompanionServiceHarness& h) {
             h.http.failNotHttp(*h.http.oldestPendingFor(statusPath));
             h.settle();
         }},
        {"undecodable", [](CompanionServiceHarness& h) { h.respond(statusPath, 200, R"({"status":"active"})"); }},
        {"pending", [](CompanionServiceHarness& h) { h.respond(statusPath, 200, statusReply("pending")); }},
        {"Revoked", [](CompanionServiceHarness& h) { h.respond(statusPath, 200, statusReply("Revoked")); }},
    };
    for (const auto& answer : answers) {
        SCOPED_TRACE(answer.what);
        CompanionServiceHarness fresh;
        fresh.startConnected();
        fresh.clearRecords();
        fresh.lastSocket().deliverError();
        fresh.settle();
        answer.give(fresh);
        EXPECT_TRUE(fresh.storeIsPaired());
        EXPECT_EQ(fresh.events, std::vector<std::string>{"state:reconnecting"});
        fresh.advance(1.0);
        EXPECT_EQ(fresh.sockets.taskCount(), 2u);
    }
}

TEST_F(CompanionServiceConnectionTest, StopWhileAReconnectionIsPending) {
    connected();
    lastSocket().deliverError();
    settle();
    respond(statusPath, 200, statusReply("active"));
    advance(1.0);
    lastSocket().deliverError(); // the attempt fails too: the next one would wait 2 s
    settle();
    respond(statusPath, 200, statusReply("active"));
    ASSERT_EQ(queue.pendingDelayedCount(), 1u);
    service->stop();
    settle();
    EXPECT_EQ(queue.pendingDelayedCount(), 0u);
    advance(60.0);
    EXPECT_EQ(sockets.taskCount(), 2u);
    // The delay is back at 1 s for the next start.
    service->start();
    settle();
    respond(phonesPath, 200, phonesReply({}));
    ASSERT_EQ(sockets.taskCount(), 3u);
    EXPECT_DOUBLE_EQ(failAndMeasureDelay(), 1.0);
}

TEST_F(CompanionServiceConnectionTest, StopWithAReconnectionPendingCancelsItClosesTheSocketAndResetsTheDelay) {
    auto& first = connected();
    auto& second = loseAndReopenBeforeTheStatusAnswer(first);
    second.deliverError(); // a second status check is now open too
    settle();
    respond(statusPath, 200, statusReply("active")); // the first answer schedules a reconnection
    service->resumeAfterAccessibilityPermission();   // and a socket opens while it is pending
    settle();
    ASSERT_EQ(sockets.taskCount(), 3u);
    auto& third = lastSocket();
    ASSERT_EQ(queue.pendingDelayedCount(), 1u);
    clearRecords();

    service->stop();
    settle();
    EXPECT_EQ(queue.pendingDelayedCount(), 0u);
    EXPECT_EQ(third.cancelCloseCodes(), std::vector<int>{1001});
    respond(statusPath, 200, statusReply("active")); // the second answer arrives after the stop
    EXPECT_EQ(queue.pendingDelayedCount(), 0u);
    advance(60.0);
    EXPECT_EQ(sockets.taskCount(), 3u);
    EXPECT_TRUE(events.empty());
    // The delay is back at 1 s: the next start is a first attempt again, not one of a series.
    service->start();
    settle();
    EXPECT_EQ(states, std::vector<State>{State::connecting});
}

TEST_F(CompanionServiceConnectionTest, StopClosesTheSocketAndALaterStatusAnswerSchedulesNothing) {
    auto& first = connected();
    auto& second = loseAndReopenBeforeTheStatusAnswer(first);
    service->stop();
    settle();
    EXPECT_EQ(second.cancelCloseCodes(), std::vector<int>{1001});
    EXPECT_TRUE(first.cancelCloseCodes().empty()); // a lost socket is only let go
    clearRecords();
    respond(statusPath, 200, statusReply("active"));
    EXPECT_TRUE(events.empty());
    EXPECT_EQ(queue.pendingDelayedCount(), 0u);
    advance(60.0);
    EXPECT_EQ(sockets.taskCount(), 2u);
}

TEST_F(CompanionServiceConnectionTest, AWithdrawingAnswerAfterStopStillWithdraws) {
    auto& socket = connected();
    socket.deliverError();
    settle();
    service->stop();
    settle();
    respond(statusPath, 200, statusReply("revoked"));
    expectWithdrawn();
}

TEST_F(CompanionServiceConnectionTest, AStatusAnswerAfterANewSocketStillSchedulesAHarmlessAttempt) {
    auto& first = connected();
    auto& second = loseAndReopenBeforeTheStatusAnswer(first);
    second.deliverText(R"({"type":"connected"})");
    settle();
    respond(statusPath, 200, statusReply("active"));
    EXPECT_EQ(states, (std::vector<State>{State::connecting, State::connected, State::reconnecting}));
    advance(1.0);
    EXPECT_EQ(sockets.taskCount(), 2u); // the attempt finds a socket and does nothing
    EXPECT_FALSE(second.wasCancelled());
    second.deliverText(R"({"type":"connected"})");
    settle();
    EXPECT_EQ(states, (std::vector<State>{State::connecting, State::connected, State::reconnecting, State::connected}));
}

TEST_F(CompanionServiceConnectionTest, ALossAfterTheStoreLostItsPairingAsksNothing) {
    auto& socket = connected();
    defaults.remove("quillix.paired");
    socket.deliverError();
    settle();
    EXPECT_EQ(requestsTo(statusPath), 0u);
    EXPECT_TRUE(events.empty());
    EXPECT_EQ(queue.activeTimerCount(), 0u);
}

TEST_F(CompanionServiceConnectionTest, AnAttemptWithoutPermissionStopsTheSeries) {
    connected();
    lastSocket().deliverError();
    settle();
    respond(statusPath, 200, statusReply("active"));
    accessibility.trusted = false;
    advance(1.0);
    EXPECT_EQ(sockets.taskCount(), 1u);
    EXPECT_EQ(states, (std::vector<State>{State::reconnecting, State::permissionRequired}));
    EXPECT_EQ(accessibilityNeeded, 1);
    EXPECT_EQ(queue.pendingDelayedCount(), 0u);
}

} // namespace
} // namespace keyferry::harness
