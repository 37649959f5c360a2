#include "CompanionServiceHarness.h"

#include <gtest/gtest.h>

namespace keyferry::harness {
namespace {

using State = CompanionConnectionState;

constexpr const char* removedText = "This computer was removed from your paired computers.";

class CompanionServicePhonesTest : public ::testing::Test, protected CompanionServiceHarness {};

TEST_F(CompanionServicePhonesTest, TheListArrivesInTheServicesOrder) {
    connected();
    service->refreshPhones();
    settle();
    respond(phonesPath, 200, phonesReply({phone("b"), phone("a"), phone("c")}));
    EXPECT_EQ(phoneLists, (std::vector<std::vector<PairedPhone>>{{phone("b"), phone("a"), phone("c")}}));
    EXPECT_TRUE(errors.empty());
}

TEST_F(CompanionServicePhonesTest, RefreshingWhileUnpairedGivesAnEmptyListWithoutARequest) {
    service->refreshPhones();
    settle();
    EXPECT_EQ(phoneLists, std::vector<std::vector<PairedPhone>>{{}});
    EXPECT_EQ(http.requestCount(), 0u);
}

TEST_F(CompanionServicePhonesTest, ABackgroundRefreshThatFailsChangesNothing) {
    plantPairing();
    service->start();
    settle();
    failTransport(phonesPath);
    EXPECT_TRUE(phoneLists.empty());
    EXPECT_TRUE(errors.empty());
    EXPECT_EQ(states, std::vector<State>{State::connecting});
}

TEST_F(CompanionServicePhonesTest, BackgroundRefreshesThatFailOnTheNetworkChangeAndReportNothing) {
    service->requestPairingCode();
    settle();
    respond(startPath, 200, pairingReply("fresh-token", 1'800'000'600'000));
    advance(1.8);
    respond(statusPath, 200, statusReply("active"));
    failTransport(phonesPath); // the refresh after the first pairing
    lastSocket().deliverText(R"({"type":"connected"})");
    settle();
    failTransport(phonesPath); // the refresh on the service's confirmation
    lastSocket().deliverText(R"({"type":"phones_changed"})");
    settle();
    failTransport(phonesPath); // the refresh on its notice of a change
    service->requestPairingCode();
    settle();
    respond(codePath, 200, pairingReply(std::nullopt, 1'800'000'600'000));
    advance(1.8);
    respond(statusPath, 200, statusReply("pending", false));
    failTransport(phonesPath); // the refresh after a phone was added
    EXPECT_EQ(requestsTo(phonesPath), 4u);
    EXPECT_EQ(events, (std::vector<std::string>{"state:creatingCode", "state:waitingForPhone", "code:K7Q-42F", "paired",
                                                "state:connecting", "state:connected", "code:K7Q-42F", "paired"}));
}

TEST_F(CompanionServicePhonesTest, A401OnABackgroundRefreshStillUnpairs) {
    plantPairing();
    service->start();
    settle();
    auto& socket = lastSocket();
    respond(phonesPath, 401, R"({"error":"unknown computer"})");
    EXPECT_EQ(events, (std::vector<std::string>{"state:connecting", "state:unpaired", "phones:0",
                                                std::string("error:") + removedText}));
    EXPECT_FALSE(storeIsPaired());
    EXPECT_EQ(socket.cancelCloseCodes(), std::vector<int>{1001});
    EXPECT_EQ(queue.activeTimerCount(), 0u);
}

TEST_F(CompanionServicePhonesTest, A401WhenAlreadyUnpairedReportsNoStateAgain) {
    plantPairing();
    accessibility.trusted = false;
    service->start();
    settle();
    service->refreshPhones();
    settle();
    respond(phonesPath, 200, phonesReply({}));
    clearRecords();
    respond(phonesPath, 401, "");
    service->refreshPhones(); // now unpaired: the empty list at once, no request
    settle();
    EXPECT_EQ(events, (std::vector<std::string>{"state:unpaired", "phones:0", std::string("error:") + removedText,
                                                "phones:0"}));
    EXPECT_EQ(requestsTo(phonesPath), 2u);
}

TEST_F(CompanionServicePhonesTest, AUserRefreshThatFailsIsReported) {
    connected();
    service->refreshPhones();
    service->refreshPhones();
    settle();
    respond(phonesPath, 500, "{}");
    failTransport(phonesPath);
    EXPECT_EQ(errors, (std::vector<std::string>{
                          "Could not refresh paired phones. The server returned 500.",
                          "Could not refresh paired phones. Check your internet connection and try again."}));
    EXPECT_TRUE(phoneLists.empty());
}

TEST_F(CompanionServicePhonesTest, TheLastReplyToArriveWins) {
    connected();
    service->refreshPhones();
    service->refreshPhones();
    settle();
    const auto indices = http.indicesForPath(phonesPath);
    http.respond(indices[indices.size() - 1], 200, phonesReply({phone("new")}));
    http.respond(indices[indices.size() - 2], 200, phonesReply({phone("old")}));
    settle();
    EXPECT_EQ(phoneLists, (std::vector<std::vector<PairedPhone>>{{phone("new")}, {phone("old")}}));
}

TEST_F(CompanionServicePhonesTest, RemovingWithoutAnIdOrWhileUnpairedDoesNothing) {
    service->removePhone("p1");
    settle();
    plantPairing();
    service->removePhone("");
    settle();
    EXPECT_EQ(http.requestCount(), 0u);
    EXPECT_TRUE(events.empty());
}

TEST_F(CompanionServicePhonesTest, ARemovalAnsweredRemovedFalseStillReloads) {
    connected();
    service->removePhone("p1");
    settle();
    const auto before = requestsTo(phonesPath);
    respond(removePath, 200, R"({"removed":false})");
    EXPECT_EQ(requestsTo(phonesPath), before + 1);
    EXPECT_TRUE(errors.empty());
    // The reload is a user refresh: its failure is told.
    respond(phonesPath, 503, "");
    EXPECT_EQ(errors, std::vector<std::string>{"Could not refresh paired phones. The server returned 503."});
}

TEST_F(CompanionServicePhonesTest, ARemovalAnswered404) {
    connected();
    service->removePhone("p1");
    settle();
    respond(removePath, 404, R"({"error":"no such pairing"})");
    EXPECT_EQ(errors, std::vector<std::string>{"Could not remove this phone. The server returned 404."});
}

TEST_F(CompanionServicePhonesTest, A401OnRemovalDoesNotUnpair) {
    auto& socket = connected();
    service->removePhone("p1");
    settle();
    respond(removePath, 401, "");
    EXPECT_EQ(events, std::vector<std::string>{"error:Could not remove this phone. The server returned 401."});
    EXPECT_TRUE(storeIsPaired());
    EXPECT_FALSE(socket.wasCancelled());
}

} // namespace
} // namespace keyferry::harness
