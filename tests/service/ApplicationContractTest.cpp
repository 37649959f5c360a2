// Every answer the service gives the application, read by the application's own decoders: each computer
// endpoint in each state of the computer (pending, expired, active, revoked). In-process on a manual clock.
#include "ApiRecords.h"
#include "ServiceCore.h"
#include "SqliteStorage.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace keyferry::service {
namespace {

class ApplicationContractTest : public ::testing::Test {
protected:
    // The record the application reads from a 2xx answer; an empty record (and a failed expectation) when the
    // answer is not a 2xx or does not decode.
    template <typename Record> Record decoded(const ApiReply& reply) {
        EXPECT_EQ(reply.status / 100, 2) << reply.body.dump();
        const auto record = Record::decode(reply.body.dump());
        EXPECT_TRUE(record) << reply.body.dump();
        return record.value_or(Record{});
    }

    // The application's view of a refusal: a status outside 2xx, with the service's error text as body.
    static void expectRefusal(const ApiReply& reply, int status) {
        EXPECT_EQ(reply.status, status);
        EXPECT_TRUE(reply.body.contains("error") && reply.body["error"].is_string()) << reply.body.dump();
    }

    PairingResponse startComputer() { return decoded<PairingResponse>(core.startPairing("Desk", "linux", "10.0.0.1")); }

    std::string pairPhone(const std::string& code, const std::string& name = "Pixel") {
        const ApiReply reply = core.pairPhone(code, name, "android", "1.0", "10.0.0.2");
        EXPECT_EQ(reply.status, 200) << reply.body.dump();
        return reply.body.value("phoneToken", std::string());
    }

    PairStatusResponse status(const std::string& token) { return decoded<PairStatusResponse>(core.pairStatus(token)); }

    ManualClock clock{1'800'000'000'000};
    SqliteStorage storage{":memory:"};
    ServiceCore core{clock, storage};
};

TEST_F(ApplicationContractTest, PairStartGivesTheCredentialAndAPendingCode) {
    const PairingResponse computer = startComputer();
    EXPECT_FALSE(computer.computerId.empty());
    ASSERT_TRUE(computer.computerToken);
    EXPECT_FALSE(computer.computerToken->empty());
    EXPECT_FALSE(computer.pairCode.empty());
    EXPECT_EQ(computer.expiresAt, clock.nowMs() + ServiceCore::codeLifetimeMs);
    EXPECT_EQ(computer.status, PairingStatus::pending);
    EXPECT_EQ(computer.platform, "linux");
}

TEST_F(ApplicationContractTest, StatusDecodesWhilePending) {
    const PairingResponse computer = startComputer();
    const PairStatusResponse pending = status(*computer.computerToken);
    EXPECT_EQ(pending.computerId, computer.computerId);
    EXPECT_EQ(pending.name, "Desk");
    EXPECT_EQ(pending.status, PairingStatus::pending);
    EXPECT_FALSE(pending.paired);
    EXPECT_EQ(pending.expiresAt, computer.expiresAt);
    EXPECT_EQ(pending.pairedDeviceCount, 0);
    EXPECT_EQ(pending.pairingPending, true);
    EXPECT_EQ(pending.pairingExpired, false);
}

TEST_F(ApplicationContractTest, StatusDecodesOnceTheFirstCodeExpired) {
    const PairingResponse computer = startComputer();
    clock.advanceMs(ServiceCore::codeLifetimeMs);
    const PairStatusResponse expired = status(*computer.computerToken);
    EXPECT_EQ(expired.status, PairingStatus::expired);
    EXPECT_FALSE(expired.paired);
    EXPECT_EQ(expired.pairingPending, false);
    EXPECT_EQ(expired.pairingExpired, true);
}

TEST_F(ApplicationContractTest, StatusDecodesOnceAPhonePaired) {
    const PairingResponse computer = startComputer();
    pairPhone(computer.pairCode);
    const PairStatusResponse active = status(*computer.computerToken);
    EXPECT_EQ(active.status, PairingStatus::active);
    EXPECT_TRUE(active.paired);
    EXPECT_EQ(active.pairedDeviceCount, 1);
    EXPECT_EQ(active.pairingPending, false);
    EXPECT_EQ(active.pairingExpired, false);
}

TEST_F(ApplicationContractTest, StatusDecodesOnceAPhoneRemovedTheComputer) {
    const PairingResponse computer = startComputer();
    ASSERT_EQ(core.removeComputer(pairPhone(computer.pairCode)).status, 200);
    const PairStatusResponse revoked = status(*computer.computerToken);
    EXPECT_EQ(revoked.status, PairingStatus::revoked);
    EXPECT_EQ(revoked.pairedDeviceCount, 0);
    EXPECT_EQ(revoked.pairingExpired, true);
}

TEST_F(ApplicationContractTest, ANewCodeDecodesWithoutACredentialInEveryLiveState) {
    const PairingResponse computer = startComputer();
    const std::string& token = *computer.computerToken;
    const PairingResponse whilePending = decoded<PairingResponse>(core.newPairCode(token));
    EXPECT_FALSE(whilePending.computerToken);
    EXPECT_EQ(whilePending.status, PairingStatus::pending);
    EXPECT_NE(whilePending.pairCode, computer.pairCode);

    clock.advanceMs(ServiceCore::codeLifetimeMs);
    const PairingResponse afterExpiry = decoded<PairingResponse>(core.newPairCode(token));
    EXPECT_EQ(afterExpiry.status, PairingStatus::pending);
    EXPECT_EQ(afterExpiry.expiresAt, clock.nowMs() + ServiceCore::codeLifetimeMs);

    pairPhone(afterExpiry.pairCode);
    const PairingResponse whileActive = decoded<PairingResponse>(core.newPairCode(token));
    EXPECT_FALSE(whileActive.computerToken);
    EXPECT_EQ(whileActive.status, PairingStatus::active);
    EXPECT_EQ(whileActive.platform, "linux");
}

TEST_F(ApplicationContractTest, PhoneListsDecodeEmptyAndInPairingOrder) {
    const PairingResponse computer = startComputer();
    const std::string& token = *computer.computerToken;
    EXPECT_TRUE(decoded<PairedPhonesResponse>(core.computerPhones(token)).phones.empty());

    pairPhone(computer.pairCode, "Pixel");
    clock.advanceMs(1000);
    pairPhone(decoded<PairingResponse>(core.newPairCode(token)).pairCode, "iPhone");
    const std::vector<PairedPhone> phones = decoded<PairedPhonesResponse>(core.computerPhones(token)).phones;
    ASSERT_EQ(phones.size(), 2u);
    EXPECT_EQ(phones[0].name, "Pixel");
    EXPECT_EQ(phones[0].platform, "android");
    EXPECT_EQ(phones[0].appVersion, "1.0");
    EXPECT_EQ(phones[0].createdAt, clock.nowMs() - 1000);
    EXPECT_EQ(phones[1].name, "iPhone");
    EXPECT_EQ(phones[1].createdAt, clock.nowMs());
    EXPECT_EQ(phones[1].lastSeenAt, clock.nowMs());
    EXPECT_NE(phones[0].id, phones[1].id);
}

TEST_F(ApplicationContractTest, RemovalDecodesWhetherOrNotThePhoneWasThere) {
    const PairingResponse computer = startComputer();
    const std::string& token = *computer.computerToken;
    pairPhone(computer.pairCode);
    const std::string pairingId = decoded<PairedPhonesResponse>(core.computerPhones(token)).phones.at(0).id;
    EXPECT_TRUE(decoded<RemovePhoneResponse>(core.removePhone(token, pairingId)).removed);
    EXPECT_FALSE(decoded<RemovePhoneResponse>(core.removePhone(token, pairingId)).removed);
    EXPECT_TRUE(decoded<PairedPhonesResponse>(core.computerPhones(token)).phones.empty());
}

TEST_F(ApplicationContractTest, ARevokedComputerIsRefusedWith401ButStillToldItsStatus) {
    const PairingResponse computer = startComputer();
    const std::string& token = *computer.computerToken;
    ASSERT_EQ(core.removeComputer(pairPhone(computer.pairCode)).status, 200);
    expectRefusal(core.newPairCode(token), 401);
    expectRefusal(core.computerPhones(token), 401);
    expectRefusal(core.removePhone(token, "any"), 401);
    EXPECT_EQ(status(token).status, PairingStatus::revoked);
}

TEST_F(ApplicationContractTest, AnUnknownCredentialIsRefusedWith401Everywhere) {
    for (const std::string token : {"", "kfc_unknown"}) {
        expectRefusal(core.newPairCode(token), 401);
        expectRefusal(core.pairStatus(token), 401);
        expectRefusal(core.computerPhones(token), 401);
        expectRefusal(core.removePhone(token, "any"), 401);
    }
}

TEST_F(ApplicationContractTest, BadRequestsAreRefusedWithTheirStatus) {
    expectRefusal(core.startPairing("", "linux", "10.0.0.1"), 400);
    const PairingResponse computer = startComputer();
    expectRefusal(core.removePhone(*computer.computerToken, ""), 400);
}

} // namespace
} // namespace keyferry::service
