#include "CompanionServiceHarness.h"

#include <gtest/gtest.h>

#include <chrono>

namespace keyferry::harness {
namespace {

using State = CompanionConnectionState;

constexpr const char* expiredText = "The pairing code expired. Create a new code and try again.";
constexpr const char* rejectedText = "The pairing credential is no longer valid.";

class CompanionServicePairingTest : public ::testing::Test, protected CompanionServiceHarness {
protected:
    // Ten minutes after the virtual clock's start, in milliseconds.
    std::int64_t codeExpiry() const { return static_cast<std::int64_t>((clock.now() + 600.0) * 1000.0); }

    // A first pairing up to the code being shown and the poll waiting.
    void firstCodeShown(const std::string& token = "fresh-token") {
        service->requestPairingCode();
        settle();
        respond(startPath, 200, pairingReply(token, codeExpiry()));
    }

    // An already paired and connected computer asking for a code to add a phone.
    fakes::ScriptedWebSocketTask& addPhoneCodeShown(std::int64_t expiresAt) {
        auto& socket = connected();
        service->requestPairingCode();
        settle();
        respond(codePath, 200, pairingReply(std::nullopt, expiresAt));
        return socket;
    }

    std::size_t statusRequests() const { return requestsTo(statusPath); }
};

TEST_F(CompanionServicePairingTest, FirstPairingFromCodeToConnection) {
    defaults.setStringArray("quillix.processedMessageIds", {"left over"});
    firstCodeShown();
    EXPECT_EQ(storedCredential(), "fresh-token");
    EXPECT_EQ(defaults.string("quillix.computerId"), "computer-1");
    EXPECT_EQ(defaults.boolean("quillix.paired"), false);
    EXPECT_FALSE(defaults.contains("quillix.processedMessageIds")); // the earlier pairing was cleared
    EXPECT_EQ(events, (std::vector<std::string>{"state:creatingCode", "state:waitingForPhone", "code:K7Q-42F"}));

    advance(1.799);
    EXPECT_EQ(statusRequests(), 0u);
    advance(0.001);
    ASSERT_EQ(statusRequests(), 1u);
    respond(statusPath, 200, statusReply("active"));
    EXPECT_EQ(defaults.boolean("quillix.paired"), true);
    EXPECT_EQ(requestsTo(phonesPath), 1u);
    EXPECT_EQ(pairingCompletions, 1);
    EXPECT_EQ(sockets.taskCount(), 1u);
    EXPECT_EQ(states, (std::vector<State>{State::creatingCode, State::waitingForPhone, State::connecting}));
    EXPECT_EQ(events.at(3), "paired");
    advance(20.0);
    EXPECT_EQ(statusRequests(), 1u); // the poll has ended
}

TEST_F(CompanionServicePairingTest, TheCodeExpiryIsTheReplysMillisecondsAsSeconds) {
    service->requestPairingCode();
    settle();
    respond(startPath, 200, pairingReply("fresh-token", 1'800'000'123'456));
    ASSERT_EQ(pairCodes.size(), 1u);
    const auto sinceEpoch =
        std::chrono::duration_cast<std::chrono::microseconds>(pairCodes[0].second.time_since_epoch());
    EXPECT_EQ(sinceEpoch.count(), 1'800'000'123'456'000LL);
}

TEST_F(CompanionServicePairingTest, AnExpiryBeyondWhatTheTimeTypeHoldsIsPinnedToItsEnd) {
    for (const std::int64_t expiresAt : {INT64_MAX, INT64_MIN}) {
        SCOPED_TRACE(expiresAt);
        CompanionServiceHarness fresh;
        fresh.service->requestPairingCode();
        fresh.settle();
        fresh.respond(startPath, 200, pairingReply("fresh-token", expiresAt));
        ASSERT_EQ(fresh.pairCodes.size(), 1u);
        EXPECT_EQ(fresh.pairCodes[0].second,
                  expiresAt > 0 ? CompanionService::PairCodeExpiry::max() : CompanionService::PairCodeExpiry::min());
    }
}

TEST_F(CompanionServicePairingTest, FirstPairingCancelsAnOpenConnection) {
    auto& socket = connected();
    defaults.remove("quillix.paired"); // no longer counts as paired: the next code request starts over
    service->requestPairingCode();
    settle();
    EXPECT_EQ(socket.cancelCloseCodes(), std::vector<int>{1001});
    EXPECT_EQ(queue.activeTimerCount(), 0u);
    EXPECT_FALSE(storedCredential().has_value());
    EXPECT_EQ(requestsTo(startPath), 1u);
}

TEST_F(CompanionServicePairingTest, AnyUnknownStatusKeepsPollingEvery1Point8Seconds) {
    firstCodeShown();
    for (const char* status : {"pending", "waiting", "ACTIVE", ""}) {
        advance(1.8);
        respond(statusPath, 200, statusReply(status));
    }
    EXPECT_EQ(statusRequests(), 4u);
    advance(1.7);
    EXPECT_EQ(statusRequests(), 4u);
    advance(0.1);
    EXPECT_EQ(statusRequests(), 5u);
    EXPECT_EQ(pairingCompletions, 0);
    EXPECT_EQ(events.size(), 3u); // nothing after the code
}

TEST_F(CompanionServicePairingTest, TheFirstPairingPollHasNoDeadlineOfItsOwn) {
    firstCodeShown();
    for (int pass = 0; pass < 500; ++pass) { // 15 minutes, past the code's own expiry
        advance(1.8);
        respond(statusPath, 200, statusReply("pending"));
    }
    advance(1.8);
    EXPECT_EQ(statusRequests(), 501u);
    EXPECT_TRUE(errors.empty());
}

TEST_F(CompanionServicePairingTest, ExpiredOrRevokedEndsWithTheExpiredCodeText) {
    for (const char* status : {"expired", "revoked"}) {
        SCOPED_TRACE(status);
        CompanionServiceHarness fresh;
        fresh.service->requestPairingCode();
        fresh.settle();
        fresh.respond(startPath, 200, pairingReply("fresh-token", 1'800'000'600'000));
        fresh.advance(1.8);
        fresh.respond(statusPath, 200, statusReply(status));
        EXPECT_FALSE(fresh.storedCredential().has_value());
        EXPECT_FALSE(fresh.defaults.contains("quillix.computerId"));
        EXPECT_EQ(fresh.states.back(), State::unpaired);
        EXPECT_EQ(fresh.errors, std::vector<std::string>{expiredText});
        fresh.advance(10.0);
        EXPECT_EQ(fresh.requestsTo(statusPath), 1u);
    }
}

TEST_F(CompanionServicePairingTest, A500PassIsSilentAndTheNextFollows) {
    firstCodeShown();
    advance(1.8);
    respond(statusPath, 500, R"({"error":"busy"})");
    advance(1.799);
    EXPECT_EQ(statusRequests(), 1u);
    advance(0.001);
    failTransport(statusPath);
    advance(1.8);
    respond(statusPath, 200, "not json");
    advance(1.8);
    EXPECT_EQ(statusRequests(), 4u);
    EXPECT_TRUE(errors.empty());
    EXPECT_EQ(states.back(), State::waitingForPhone);
}

TEST_F(CompanionServicePairingTest, A401EndsTheFirstPairing) {
    firstCodeShown();
    advance(1.8);
    respond(statusPath, 401, "");
    EXPECT_FALSE(storedCredential().has_value());
    EXPECT_EQ(states.back(), State::unpaired);
    EXPECT_EQ(errors, std::vector<std::string>{rejectedText});
    advance(10.0);
    EXPECT_EQ(statusRequests(), 1u);
}

TEST_F(CompanionServicePairingTest, AnEmptyOrMissingCredentialEndsTheFirstPairing) {
    for (const std::optional<std::string>& token : {std::optional<std::string>(""), std::optional<std::string>()}) {
        CompanionServiceHarness fresh;
        fresh.service->requestPairingCode();
        fresh.settle();
        fresh.respond(startPath, 200, pairingReply(token, 1'800'000'600'000));
        EXPECT_EQ(fresh.states, (std::vector<State>{State::creatingCode, State::unpaired}));
        EXPECT_EQ(fresh.errors, std::vector<std::string>{"The pairing service did not return a computer credential."});
        EXPECT_FALSE(fresh.storedCredential().has_value());
        EXPECT_FALSE(fresh.defaults.contains("quillix.computerId"));
        EXPECT_TRUE(fresh.pairCodes.empty());
        fresh.advance(10.0);
        EXPECT_EQ(fresh.requestsTo(statusPath), 0u);
    }
}

TEST_F(CompanionServicePairingTest, ACredentialThatCannotBeSavedEndsTheFirstPairing) {
    secrets.failAlways(fakes::InMemorySecretBackend::Operation::add,
                       fakes::InMemorySecretBackend::secretInteractionNotAllowed);
    service->requestPairingCode();
    settle();
    respond(startPath, 200, pairingReply("fresh-token", codeExpiry()));
    EXPECT_EQ(states, (std::vector<State>{State::creatingCode, State::unpaired}));
    EXPECT_EQ(errors, std::vector<std::string>{"Could not save the pairing credential in Keychain."});
    EXPECT_FALSE(defaults.contains("quillix.computerId"));
    EXPECT_TRUE(pairCodes.empty());
}

TEST_F(CompanionServicePairingTest, AFailedFirstCodeRequestReturnsToUnpaired) {
    service->requestPairingCode();
    settle();
    respond(startPath, 503, R"({"error":"maintenance"})");
    EXPECT_EQ(states, (std::vector<State>{State::creatingCode, State::unpaired}));
    EXPECT_EQ(errors, std::vector<std::string>{"Could not create a pairing code. The server returned 503."});
    service->requestPairingCode();
    settle();
    failTransport(startPath);
    EXPECT_EQ(errors.back(), "Could not create a pairing code. Check your internet connection and try again.");
}

TEST_F(CompanionServicePairingTest, AFailedCodeRequestWhilePairedOnlyReports) {
    auto& socket = connected();
    service->requestPairingCode();
    settle();
    respond(codePath, 500, "{}");
    EXPECT_EQ(events, std::vector<std::string>{"error:Could not create a pairing code. The server returned 500."});
    EXPECT_TRUE(storeIsPaired());
    EXPECT_FALSE(socket.wasCancelled());
}

TEST_F(CompanionServicePairingTest, ANewCodeEndsTheEarlierFirstPairingPoll) {
    firstCodeShown("first-token");
    advance(1.8);
    service->requestPairingCode();
    settle();
    // The first poll's reply arrives after its credential was dropped: ignored.
    respond(statusPath, 200, statusReply("active"));
    EXPECT_EQ(pairingCompletions, 0);
    respond(startPath, 200, pairingReply("second-token", codeExpiry()));
    advance(1.8);
    respond(statusPath, 200, statusReply("pending"));
    advance(1.8);
    ASSERT_EQ(statusRequests(), 3u);
    for (const auto index : {1u, 2u}) {
        EXPECT_EQ(headerValue(http.request(http.indicesForPath(statusPath)[index]).headers, "Authorization"),
                  "Bearer second-token");
    }
}

TEST_F(CompanionServicePairingTest, AddingAPhoneLeavesStateAndConnectionAlone) {
    auto& socket = addPhoneCodeShown(codeExpiry());
    EXPECT_EQ(events, std::vector<std::string>{"code:K7Q-42F"});
    advance(1.8);
    respond(statusPath, 200, statusReply("active", true)); // "status" is not what this poll reads
    advance(1.8);
    respond(statusPath, 200, statusReply("pending")); // pairingPending absent: still waiting
    advance(1.8);
    respond(statusPath, 200,
            R"({"computerId":"c","name":"n","status":"s","paired":true,"expiresAt":1,"pairingPending":null})");
    advance(1.8);
    EXPECT_EQ(statusRequests(), 4u);
    EXPECT_EQ(headerValue(http.request(http.indicesForPath(statusPath)[0]).headers, "Authorization"), "Bearer token-1");
    const auto phoneRequests = requestsTo(phonesPath);
    respond(statusPath, 200, statusReply("pending", false));
    EXPECT_EQ(requestsTo(phonesPath), phoneRequests + 1);
    EXPECT_EQ(pairingCompletions, 1);
    EXPECT_TRUE(states.empty());
    EXPECT_FALSE(socket.wasCancelled());
    advance(10.0);
    EXPECT_EQ(statusRequests(), 4u);
}

TEST_F(CompanionServicePairingTest, AddingAPhoneStopsWhenTheServiceSaysTheCodeExpired) {
    addPhoneCodeShown(codeExpiry());
    advance(1.8);
    respond(statusPath, 200, statusReply("pending", false, true)); // expired wins over used
    EXPECT_EQ(events, (std::vector<std::string>{"code:K7Q-42F", std::string("error:") + expiredText}));
    EXPECT_EQ(pairingCompletions, 0);
    EXPECT_TRUE(storeIsPaired());
    advance(10.0);
    EXPECT_EQ(statusRequests(), 1u);
}

TEST_F(CompanionServicePairingTest, AddingAPhoneWhileOfflineEndsOnceAtTheLocalDeadline) {
    addPhoneCodeShown(static_cast<std::int64_t>((clock.now() + 9.0) * 1000.0));
    while (http.oldestPendingFor(statusPath) || queue.pendingDelayedCount() > 0) {
        advance(1.8);
        if (http.oldestPendingFor(statusPath)) {
            failTransport(statusPath);
        }
    }
    // Passes at 1.8, 3.6, 5.4, 7.2 and 9.0 s; after the last one the clock is no longer before the deadline.
    EXPECT_EQ(statusRequests(), 5u);
    EXPECT_EQ(errors, std::vector<std::string>{expiredText});
    EXPECT_TRUE(storeIsPaired());
    advance(60.0);
    EXPECT_EQ(errors.size(), 1u);
}

TEST_F(CompanionServicePairingTest, AnAlreadyExpiredAddPhoneCodeIsToldAtOnce) {
    addPhoneCodeShown(static_cast<std::int64_t>(clock.now() * 1000.0));
    EXPECT_EQ(errors, std::vector<std::string>{expiredText});
    advance(10.0);
    EXPECT_EQ(statusRequests(), 0u);
}

TEST_F(CompanionServicePairingTest, A401WhileAddingAPhoneUnpairsButLeavesTheSocket) {
    auto& socket = addPhoneCodeShown(codeExpiry());
    advance(1.8);
    respond(statusPath, 401, "");
    EXPECT_FALSE(storeIsPaired());
    EXPECT_EQ(events, (std::vector<std::string>{"code:K7Q-42F", "state:unpaired", "phones:0",
                                                std::string("error:") + rejectedText}));
    EXPECT_FALSE(socket.wasCancelled());
}

TEST_F(CompanionServicePairingTest, TwoAddPhonePollsRunSideBySide) {
    addPhoneCodeShown(codeExpiry());
    service->requestPairingCode();
    settle();
    respond(codePath, 200, pairingReply(std::nullopt, codeExpiry(), "SECOND"));
    advance(1.8);
    EXPECT_EQ(statusRequests(), 2u);
}

TEST_F(CompanionServicePairingTest, StoppingEndsEveryPollWithoutAMessage) {
    firstCodeShown();
    advance(1.8);
    respond(statusPath, 200, statusReply("pending"));
    service->stop();
    settle();
    advance(30.0);
    EXPECT_EQ(statusRequests(), 1u);
    EXPECT_TRUE(errors.empty());

    CompanionServiceHarness adding;
    adding.connected();
    adding.service->requestPairingCode();
    adding.settle();
    adding.respond(codePath, 200, pairingReply(std::nullopt, 1'800'000'600'000));
    adding.service->stop();
    adding.settle();
    adding.advance(30.0);
    EXPECT_EQ(adding.requestsTo(statusPath), 0u);
    EXPECT_TRUE(adding.errors.empty());
}

TEST_F(CompanionServicePairingTest, AnAnswerAlreadyOnItsWayWhenStoppedStillCompletesThePairingButDoesNotConnect) {
    firstCodeShown();
    advance(1.8);
    service->stop();
    settle();
    respond(statusPath, 200, statusReply("active"));
    EXPECT_TRUE(storeIsPaired());
    EXPECT_EQ(pairingCompletions, 1);
    EXPECT_EQ(sockets.taskCount(), 0u);
    EXPECT_EQ(states.back(), State::waitingForPhone);
    service->start(); // the next start connects with the new pairing
    settle();
    EXPECT_EQ(sockets.taskCount(), 1u);
}

} // namespace
} // namespace keyferry::harness
