// The service's rules in-process: a manual clock and an in-memory database, no network.
#include "ServiceCore.h"
#include "SqliteStorage.h"

#include <gtest/gtest.h>

#include <set>

namespace keyferry::service {
namespace {

using nlohmann::json;

constexpr std::int64_t minuteMs = 60'000;
constexpr int allTexts = 1'000;

class ServiceCoreTest : public ::testing::Test {
protected:
    ServiceCoreTest() : core(clock, storage, recordingEvents()) {}

    ServiceEvents recordingEvents() {
        ServiceEvents events;
        events.phonesChanged = [this](const std::string& id) { phonesChanged.push_back(id); };
        events.textQueued = [this](const std::string& id) { textQueued.push_back(id); };
        events.computerRevoked = [this](const std::string& id) { revoked.push_back(id); };
        events.computerOnline = [this](const std::string& id) { return online.count(id) > 0; };
        return events;
    }

    json startComputer(const std::string& address = "10.0.0.1") {
        const ApiReply reply = core.startPairing("Desk", "linux", address);
        EXPECT_EQ(reply.status, 200) << reply.body.dump();
        return reply.body;
    }

    json pairPhone(const std::string& code, const std::string& address = "10.0.0.2") {
        const ApiReply reply = core.pairPhone(code, "Pixel", "android", "1.0", address);
        EXPECT_EQ(reply.status, 200) << reply.body.dump();
        return reply.body;
    }

    // A computer with one paired phone: {computer reply, phone reply}.
    std::pair<json, json> pairedComputer() {
        json computer = startComputer();
        json phone = pairPhone(computer["pairCode"]);
        return {computer, phone};
    }

    ManualClock clock{1'800'000'000'000};
    SqliteStorage storage{":memory:"};
    ServiceCore core;
    std::vector<std::string> phonesChanged;
    std::vector<std::string> textQueued;
    std::vector<std::string> revoked;
    std::set<std::string> online;
};

TEST_F(ServiceCoreTest, StartingPairingGivesAPendingComputerWithACodeAndToken) {
    const json reply = startComputer();
    EXPECT_EQ(reply["status"], "pending");
    EXPECT_EQ(reply["platform"], "linux");
    EXPECT_EQ(reply["expiresAt"], clock.nowMs() + 10 * minuteMs);
    EXPECT_EQ(reply["pairCode"].get<std::string>().size(), 11u); // nine digits in three groups
    const std::string token = reply["computerToken"];
    EXPECT_GE(token.size(), 43u + 4u); // 256 bits in base64url after the prefix
    EXPECT_NE(reply["computerId"], "");
}

TEST_F(ServiceCoreTest, TokensAreStoredOnlyAsHashes) {
    const json reply = startComputer();
    EXPECT_FALSE(storage.computerByTokenHash(reply["computerToken"].get<std::string>()));
    EXPECT_TRUE(core.authenticateComputer(reply["computerToken"].get<std::string>()));
}

TEST_F(ServiceCoreTest, StartingPairingRefusesBadNames) {
    EXPECT_EQ(core.startPairing("", "linux", "a").status, 400);
    EXPECT_EQ(core.startPairing(std::string(101, 'x'), "linux", "a").status, 400);
    EXPECT_EQ(core.startPairing("Desk", "", "a").status, 400);
    EXPECT_EQ(core.startPairing("De\nsk", "linux", "a").status, 400);
    EXPECT_EQ(core.startPairing("\xff\xfe", "linux", "a").status, 400);
    EXPECT_EQ(core.startPairing(std::string(100, 'x'), "linux", "a").status, 200);
}

TEST_F(ServiceCoreTest, StartingPairingIsRateLimitedPerAddress) {
    for (int i = 0; i < ServiceCore::pairStartsPerAddress; ++i) {
        ASSERT_EQ(core.startPairing("Desk", "linux", "10.1.1.1").status, 200);
    }
    const ApiReply limited = core.startPairing("Desk", "linux", "10.1.1.1");
    EXPECT_EQ(limited.status, 429);
    EXPECT_TRUE(limited.retryAfterSeconds.has_value());
    EXPECT_EQ(core.startPairing("Desk", "linux", "10.1.1.2").status, 200);
    clock.advanceMs(minuteMs);
    EXPECT_EQ(core.startPairing("Desk", "linux", "10.1.1.1").status, 200);
}

TEST_F(ServiceCoreTest, StatusIsPendingThenActiveOncePhonePairs) {
    const json computer = startComputer();
    const std::string token = computer["computerToken"];
    json status = core.pairStatus(token).body;
    EXPECT_EQ(status["status"], "pending");
    EXPECT_EQ(status["paired"], false);
    EXPECT_EQ(status["pairingPending"], true);
    EXPECT_EQ(status["pairingExpired"], false);
    EXPECT_EQ(status["pairedDeviceCount"], 0);
    EXPECT_EQ(status["name"], "Desk");
    EXPECT_EQ(status["expiresAt"], computer["expiresAt"]);

    const json phone = pairPhone(computer["pairCode"]);
    EXPECT_EQ(phone["computerId"], computer["computerId"]);
    EXPECT_EQ(phone["computerName"], "Desk");
    status = core.pairStatus(token).body;
    EXPECT_EQ(status["status"], "active");
    EXPECT_EQ(status["paired"], true);
    EXPECT_EQ(status["pairedDeviceCount"], 1);
    EXPECT_EQ(status["pairingPending"], false);
    EXPECT_EQ(status["pairingExpired"], false);
    EXPECT_EQ(phonesChanged, std::vector<std::string>{computer["computerId"]});
}

TEST_F(ServiceCoreTest, FirstCodeExpiresAfterTenMinutes) {
    const json computer = startComputer();
    const std::string token = computer["computerToken"];
    clock.advanceMs(10 * minuteMs - 1);
    EXPECT_EQ(core.pairStatus(token).body["status"], "pending");
    clock.advanceMs(1);
    const json status = core.pairStatus(token).body;
    EXPECT_EQ(status["status"], "expired");
    EXPECT_EQ(status["pairingPending"], false);
    EXPECT_EQ(status["pairingExpired"], true);
    EXPECT_EQ(core.pairPhone(computer["pairCode"].get<std::string>(), "Pixel", "android", "1.0", "p").status, 404);
}

TEST_F(ServiceCoreTest, CodesAreSingleUse) {
    const json computer = startComputer();
    pairPhone(computer["pairCode"]);
    EXPECT_EQ(core.pairPhone(computer["pairCode"].get<std::string>(), "Other", "ios", "1.0", "10.0.0.3").status, 404);
}

TEST_F(ServiceCoreTest, AddPhoneCodeReportsPendingUsedAndExpired) {
    const auto [computer, phone] = pairedComputer();
    const std::string token = computer["computerToken"];
    const ApiReply code = core.newPairCode(token);
    ASSERT_EQ(code.status, 200);
    EXPECT_FALSE(code.body.contains("computerToken"));
    EXPECT_EQ(code.body["status"], "active");
    EXPECT_EQ(core.pairStatus(token).body["pairingPending"], true);

    pairPhone(code.body["pairCode"], "10.0.0.3");
    json status = core.pairStatus(token).body;
    EXPECT_EQ(status["pairingPending"], false);
    EXPECT_EQ(status["pairingExpired"], false);
    EXPECT_EQ(status["pairedDeviceCount"], 2);

    core.newPairCode(token);
    clock.advanceMs(10 * minuteMs);
    status = core.pairStatus(token).body;
    EXPECT_EQ(status["status"], "active");
    EXPECT_EQ(status["pairingPending"], false);
    EXPECT_EQ(status["pairingExpired"], true);
}

TEST_F(ServiceCoreTest, ANewCodeWithdrawsTheComputersPreviousCode) {
    const auto [computer, phone] = pairedComputer();
    const std::string first = core.newPairCode(computer["computerToken"].get<std::string>()).body["pairCode"];
    core.newPairCode(computer["computerToken"].get<std::string>());
    EXPECT_EQ(core.pairPhone(first, "Pixel", "android", "1.0", "10.0.0.9").status, 404);
}

TEST_F(ServiceCoreTest, PairingRefusesMalformedInput) {
    const json computer = startComputer();
    EXPECT_EQ(core.pairPhone("12345", "Pixel", "android", "1.0", "a").status, 400);
    EXPECT_EQ(core.pairPhone("12a456", "Pixel", "android", "1.0", "a").status, 400);
    EXPECT_EQ(core.pairPhone(computer["pairCode"].get<std::string>(), "", "android", "1.0", "a").status, 400);
    EXPECT_EQ(core.pairPhone(computer["pairCode"].get<std::string>(), "Pixel", "", "1.0", "a").status, 400);
    EXPECT_EQ(
        core.pairPhone(computer["pairCode"].get<std::string>(), "Pixel", "android", std::string(41, '1'), "a").status,
        400);
}

TEST_F(ServiceCoreTest, BadTokensAre401Everywhere) {
    const auto [computer, phone] = pairedComputer();
    for (const std::string& token :
         std::vector<std::string>{"", "kfc_nonsense", phone["phoneToken"].get<std::string>()}) {
        EXPECT_EQ(core.newPairCode(token).status, 401);
        EXPECT_EQ(core.pairStatus(token).status, 401);
        EXPECT_EQ(core.computerPhones(token).status, 401);
        EXPECT_EQ(core.removePhone(token, "x").status, 401);
        EXPECT_FALSE(core.authenticateComputer(token));
    }
    for (const std::string& token :
         std::vector<std::string>{"", "kfp_nonsense", computer["computerToken"].get<std::string>()}) {
        EXPECT_EQ(core.phoneInfo(token).status, 401);
        EXPECT_EQ(core.sendText(token, "hi").status, 401);
        EXPECT_EQ(core.phoneTexts(token).status, 401);
        EXPECT_EQ(core.unpairPhone(token).status, 401);
        EXPECT_EQ(core.removeComputer(token).status, 401);
    }
}

TEST_F(ServiceCoreTest, PhonesAreListedInPairingOrderWithTheirDetails) {
    const json computer = startComputer();
    pairPhone(computer["pairCode"]);
    clock.advanceMs(1000);
    const std::string second = core.newPairCode(computer["computerToken"].get<std::string>()).body["pairCode"];
    ASSERT_EQ(core.pairPhone(second, "iPhone", "ios", "2.1", "10.0.0.5").status, 200);
    const json phones = core.computerPhones(computer["computerToken"].get<std::string>()).body["phones"];
    ASSERT_EQ(phones.size(), 2u);
    EXPECT_EQ(phones[0]["name"], "Pixel");
    EXPECT_EQ(phones[1]["name"], "iPhone");
    EXPECT_EQ(phones[1]["platform"], "ios");
    EXPECT_EQ(phones[1]["appVersion"], "2.1");
    EXPECT_EQ(phones[1]["createdAt"], clock.nowMs());
    EXPECT_EQ(phones[1]["lastSeenAt"], clock.nowMs());
}

TEST_F(ServiceCoreTest, RemovingAPhoneRevokesItsTokenAndTellsTheComputer) {
    const auto [computer, phone] = pairedComputer();
    const std::string token = computer["computerToken"];
    phonesChanged.clear();
    EXPECT_EQ(core.removePhone(token, "").status, 400);
    EXPECT_EQ(core.removePhone(token, "unknown").body["removed"], false);
    EXPECT_TRUE(phonesChanged.empty());
    EXPECT_EQ(core.removePhone(token, phone["pairingId"].get<std::string>()).body["removed"], true);
    EXPECT_EQ(phonesChanged.size(), 1u);
    EXPECT_EQ(core.phoneInfo(phone["phoneToken"].get<std::string>()).status, 401);
    EXPECT_TRUE(core.computerPhones(token).body["phones"].empty());
    EXPECT_EQ(core.pairStatus(token).body["status"], "active");
}

TEST_F(ServiceCoreTest, APhoneUnpairsItself) {
    const auto [computer, phone] = pairedComputer();
    phonesChanged.clear();
    EXPECT_EQ(core.unpairPhone(phone["phoneToken"].get<std::string>()).body["unpaired"], true);
    EXPECT_EQ(phonesChanged.size(), 1u);
    EXPECT_EQ(core.phoneTexts(phone["phoneToken"].get<std::string>()).status, 401);
    EXPECT_TRUE(core.computerPhones(computer["computerToken"].get<std::string>()).body["phones"].empty());
}

TEST_F(ServiceCoreTest, APhoneRemovesTheComputerWhichRevokesEverything) {
    const auto [computer, phone] = pairedComputer();
    const std::string token = computer["computerToken"];
    core.sendText(phone["phoneToken"].get<std::string>(), "never typed");
    EXPECT_EQ(core.removeComputer(phone["phoneToken"].get<std::string>()).body["removed"], true);
    EXPECT_EQ(revoked, std::vector<std::string>{computer["computerId"]});
    const json status = core.pairStatus(token).body;
    EXPECT_EQ(status["status"], "revoked");
    EXPECT_EQ(status["paired"], false);
    EXPECT_EQ(status["pairingPending"], false);
    EXPECT_EQ(status["pairingExpired"], true);
    EXPECT_EQ(core.computerPhones(token).status, 401);
    EXPECT_EQ(core.newPairCode(token).status, 401);
    EXPECT_FALSE(core.authenticateComputer(token));
    EXPECT_EQ(core.phoneInfo(phone["phoneToken"].get<std::string>()).status, 401);
    EXPECT_TRUE(core.textsToDeliver(computer["computerId"], 0, allTexts).empty());
}

TEST_F(ServiceCoreTest, TextsWaitInOrderUntilAcknowledged) {
    const auto [computer, phone] = pairedComputer();
    const std::string computerId = computer["computerId"];
    const std::string phoneToken = phone["phoneToken"];
    const json first = core.sendText(phoneToken, "first").body;
    const json second = core.sendText(phoneToken, "second ✓").body;
    EXPECT_EQ(first["state"], "queued");
    EXPECT_EQ(first["computerOnline"], false);
    EXPECT_EQ(textQueued, (std::vector<std::string>{computerId, computerId}));

    auto pending = core.textsToDeliver(computerId, 0, allTexts);
    ASSERT_EQ(pending.size(), 2u);
    EXPECT_EQ(pending[0].id, first["id"]);
    EXPECT_EQ(pending[0].text, "first");
    EXPECT_EQ(pending[1].text, "second ✓");
    EXPECT_EQ(core.textsToDeliver(computerId, pending[0].serial, allTexts).size(), 1u);

    core.markDelivered(computerId, pending[0].id);
    core.acknowledge(computerId, pending[0].id);
    core.acknowledge(computerId, pending[0].id);
    core.acknowledge(computerId, "unknown");
    pending = core.textsToDeliver(computerId, 0, allTexts);
    ASSERT_EQ(pending.size(), 1u);
    EXPECT_EQ(pending[0].text, "second ✓");

    const json texts = core.phoneTexts(phoneToken).body["texts"];
    ASSERT_EQ(texts.size(), 2u);
    EXPECT_EQ(texts[0]["state"], "queued");
    EXPECT_EQ(texts[1]["state"], "typed");
    EXPECT_EQ(texts[1]["typedAt"], clock.nowMs());
}

TEST_F(ServiceCoreTest, AnotherComputersAcknowledgementIsIgnored) {
    const auto [computer, phone] = pairedComputer();
    const auto [other, otherPhone] = pairedComputer();
    const std::string id = core.sendText(phone["phoneToken"].get<std::string>(), "mine").body["id"];
    core.acknowledge(other["computerId"], id);
    EXPECT_EQ(core.textsToDeliver(computer["computerId"], 0, allTexts).size(), 1u);
}

TEST_F(ServiceCoreTest, DeliveredStateAndOnlineFlagFollowTheConnection) {
    const auto [computer, phone] = pairedComputer();
    const std::string computerId = computer["computerId"];
    online.insert(computerId);
    const json sent = core.sendText(phone["phoneToken"].get<std::string>(), "hello").body;
    EXPECT_EQ(sent["computerOnline"], true);
    core.markDelivered(computerId, sent["id"].get<std::string>());
    const json info = core.phoneInfo(phone["phoneToken"].get<std::string>()).body;
    EXPECT_EQ(info["computerOnline"], true);
    EXPECT_EQ(info["computerName"], "Desk");
    EXPECT_EQ(core.phoneTexts(phone["phoneToken"].get<std::string>()).body["texts"][0]["state"], "delivered");
}

TEST_F(ServiceCoreTest, TextsAreValidatedAndLimited) {
    const auto [computer, phone] = pairedComputer();
    const std::string token = phone["phoneToken"];
    EXPECT_EQ(core.sendText(token, "").status, 400);
    EXPECT_EQ(core.sendText(token, "bad \xc3\x28 utf-8").status, 400);
    EXPECT_EQ(core.sendText(token, "\xed\xa0\x80").status, 400); // an encoded surrogate
    std::string longest;
    for (int i = 0; i < 10'000; ++i) {
        longest += "é";
    }
    EXPECT_EQ(core.sendText(token, longest).status, 200);
    EXPECT_EQ(core.sendText(token, longest + "x").status, 413);
    EXPECT_EQ(core.sendText(token, "line one\nline two\ttab").status, 200);
}

TEST_F(ServiceCoreTest, TooManyWaitingTextsAreRefused) {
    const auto [computer, phone] = pairedComputer();
    const std::string token = phone["phoneToken"];
    for (int i = 0; i < ServiceCore::maxWaitingTexts; ++i) {
        ASSERT_EQ(core.sendText(token, "t").status, 200);
    }
    EXPECT_EQ(core.sendText(token, "one too many").status, 429);
}

TEST_F(ServiceCoreTest, PhoneLastSeenMovesWithItsRequests) {
    const auto [computer, phone] = pairedComputer();
    clock.advanceMs(5 * minuteMs);
    core.phoneInfo(phone["phoneToken"].get<std::string>());
    const json phones = core.computerPhones(computer["computerToken"].get<std::string>()).body["phones"];
    EXPECT_EQ(phones[0]["lastSeenAt"], clock.nowMs());
    EXPECT_EQ(phones[0]["createdAt"], clock.nowMs() - 5 * minuteMs);
}

TEST_F(ServiceCoreTest, AnExpiredComputerCanAskForANewCode) {
    const json computer = startComputer();
    clock.advanceMs(11 * minuteMs);
    const ApiReply code = core.newPairCode(computer["computerToken"].get<std::string>());
    ASSERT_EQ(code.status, 200);
    EXPECT_EQ(code.body["status"], "pending");
    pairPhone(code.body["pairCode"]);
    EXPECT_EQ(core.pairStatus(computer["computerToken"].get<std::string>()).body["status"], "active");
}

} // namespace
} // namespace keyferry::service
