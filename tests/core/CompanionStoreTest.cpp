#include "CompanionStore.h"
#include "InMemoryDefaults.h"
#include "InMemorySecretBackend.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace keyferry {
namespace {

using fakes::InMemoryDefaults;
using fakes::InMemorySecretBackend;
using Operation = InMemorySecretBackend::Operation;

const SecretQuery tokenItem{"com.quillix.companion", "computer-token"};

std::vector<std::string> numberedIds(int count, const std::string& prefix = "m") {
    std::vector<std::string> ids;
    for (int index = 1; index <= count; ++index) {
        ids.push_back(prefix + std::to_string(index));
    }
    return ids;
}

class CompanionStoreTest : public testing::Test {
protected:
    void pairFully() {
        defaults.setBoolean("quillix.paired", true);
        defaults.setString("quillix.computerId", "computer-1");
        secrets.plant(tokenItem, "token-1");
    }

    std::vector<std::string> processedIds() const {
        return defaults.stringArray("quillix.processedMessageIds").value_or(std::vector<std::string>{});
    }

    InMemoryDefaults defaults;
    InMemorySecretBackend secrets;
    CompanionStore store{defaults, secrets};
};

TEST_F(CompanionStoreTest, PairedWhenFlagIdAndTokenArePresent) {
    pairFully();
    EXPECT_TRUE(store.isPaired());
}

TEST_F(CompanionStoreTest, FreshInstallationIsNotPaired) {
    EXPECT_FALSE(store.isPaired());
}

TEST_F(CompanionStoreTest, PairedFlagTrueWithEmptyComputerIdIsNotPaired) {
    pairFully();
    defaults.setString("quillix.computerId", "");
    EXPECT_FALSE(store.isPaired());
}

TEST_F(CompanionStoreTest, PairedFlagTrueWithoutComputerIdIsNotPairedAndTheKeychainIsNotRead) {
    pairFully();
    defaults.remove("quillix.computerId");
    EXPECT_FALSE(store.isPaired());
    EXPECT_EQ(secrets.callCount(Operation::find), 0u);
}

TEST_F(CompanionStoreTest, TokenWithoutPairedFlagIsNotPairedAndTheKeychainIsNotRead) {
    pairFully();
    defaults.remove("quillix.paired");
    EXPECT_FALSE(store.isPaired());
    EXPECT_TRUE(secrets.calls().empty());
}

TEST_F(CompanionStoreTest, PairedFlagFalseIsNotPairedAndTheKeychainIsNotRead) {
    pairFully();
    defaults.setBoolean("quillix.paired", false);
    EXPECT_FALSE(store.isPaired());
    EXPECT_TRUE(secrets.calls().empty());
}

TEST_F(CompanionStoreTest, PairedFlagOfAnotherTypeIsNotPaired) {
    pairFully();
    defaults.values["quillix.paired"] = std::string("true");
    EXPECT_FALSE(store.isPaired());
}

TEST_F(CompanionStoreTest, MissingOrEmptyTokenIsNotPaired) {
    pairFully();
    secrets.plant(tokenItem, "");
    EXPECT_FALSE(store.isPaired());
    ASSERT_EQ(secrets.remove(tokenItem), secretSuccess);
    EXPECT_FALSE(store.isPaired());
}

TEST_F(CompanionStoreTest, UnreadableTokenIsNotPaired) {
    pairFully();
    secrets.failNext(Operation::find, InMemorySecretBackend::secretInteractionNotAllowed);
    EXPECT_FALSE(store.isPaired());
}

TEST_F(CompanionStoreTest, ComputerTokenIsTheKeychainStringOrEmpty) {
    EXPECT_EQ(store.computerToken(), "");
    secrets.plant(tokenItem, "token-9");
    EXPECT_EQ(store.computerToken(), "token-9");
    secrets.failNext(Operation::find, -1);
    EXPECT_EQ(store.computerToken(), "");
}

TEST_F(CompanionStoreTest, SavePairingWritesTokenThenIdAndFlag) {
    EXPECT_EQ(store.savePairing("computer-7", "token-7", true), std::nullopt);
    EXPECT_EQ(secrets.item(tokenItem)->value, "token-7");
    EXPECT_EQ(secrets.item(tokenItem)->accessibility, SecretAccessibility::afterFirstUnlock);
    EXPECT_EQ(defaults.string("quillix.computerId"), "computer-7");
    EXPECT_EQ(defaults.boolean("quillix.paired"), true);
    EXPECT_TRUE(store.isPaired());
}

TEST_F(CompanionStoreTest, SavePairingNotYetPairedKeepsTheFlagFalse) {
    EXPECT_EQ(store.savePairing("computer-7", "token-7", false), std::nullopt);
    EXPECT_EQ(defaults.boolean("quillix.paired"), false);
    EXPECT_FALSE(store.isPaired());
    store.setPaired(true);
    EXPECT_EQ(defaults.boolean("quillix.paired"), true);
    EXPECT_TRUE(store.isPaired());
}

TEST_F(CompanionStoreTest, FailingKeychainWriteLeavesIdAndFlagAsTheyWere) {
    defaults.setString("quillix.computerId", "old-computer");
    defaults.setBoolean("quillix.paired", false);
    secrets.failAlways(Operation::update, InMemorySecretBackend::secretInteractionNotAllowed);

    const auto error = store.savePairing("new-computer", "new-token", true);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->status, InMemorySecretBackend::secretInteractionNotAllowed);
    EXPECT_EQ(defaults.string("quillix.computerId"), "old-computer");
    EXPECT_EQ(defaults.boolean("quillix.paired"), false);
}

TEST_F(CompanionStoreTest, FailingKeychainAddOnAFreshInstallationWritesNoDefaults) {
    secrets.failNext(Operation::add, -34);
    ASSERT_TRUE(store.savePairing("computer-1", "token-1", true));
    EXPECT_TRUE(defaults.values.empty());
}

TEST_F(CompanionStoreTest, ClearPairingRemovesTokenAndTheThreeKeys) {
    pairFully();
    store.recordProcessedMessage("A");
    defaults.setString("someone.else", "kept");

    store.clearPairing();
    EXPECT_FALSE(secrets.item(tokenItem));
    EXPECT_FALSE(defaults.contains("quillix.computerId"));
    EXPECT_FALSE(defaults.contains("quillix.paired"));
    EXPECT_FALSE(defaults.contains("quillix.processedMessageIds"));
    EXPECT_TRUE(defaults.contains("someone.else"));
    EXPECT_FALSE(store.isPaired());
    EXPECT_FALSE(store.hasProcessedMessage("A"));
}

TEST_F(CompanionStoreTest, ClearPairingWithNothingStoredSucceedsSilently) {
    store.clearPairing();
    ASSERT_EQ(secrets.calls().size(), 1u);
    EXPECT_EQ(secrets.calls()[0].operation, Operation::remove);
    EXPECT_EQ(secrets.calls()[0].query, tokenItem);
    EXPECT_TRUE(defaults.values.empty());
}

TEST_F(CompanionStoreTest, ClearPairingIgnoresAFailingDelete) {
    pairFully();
    secrets.failNext(Operation::remove, InMemorySecretBackend::secretInteractionNotAllowed);
    store.clearPairing();
    EXPECT_FALSE(defaults.contains("quillix.paired"));
    EXPECT_FALSE(store.isPaired());
}

TEST_F(CompanionStoreTest, ProcessedMessagesStartEmpty) {
    EXPECT_FALSE(store.hasProcessedMessage("A"));
}

TEST_F(CompanionStoreTest, RecordedMessageIsProcessedByExactEquality) {
    store.recordProcessedMessage("A");
    EXPECT_TRUE(store.hasProcessedMessage("A"));
    EXPECT_FALSE(store.hasProcessedMessage("a"));
    EXPECT_FALSE(store.hasProcessedMessage("A "));
    EXPECT_EQ(processedIds(), (std::vector<std::string>{"A"}));
}

TEST_F(CompanionStoreTest, RecordingAppendsInOrder) {
    store.recordProcessedMessage("A");
    store.recordProcessedMessage("B");
    store.recordProcessedMessage("C");
    EXPECT_EQ(processedIds(), (std::vector<std::string>{"A", "B", "C"}));
}

TEST_F(CompanionStoreTest, TwoHundredIdsAreAllKept) {
    for (const auto& id : numberedIds(200)) {
        store.recordProcessedMessage(id);
    }
    EXPECT_EQ(processedIds(), numberedIds(200));
    EXPECT_TRUE(store.hasProcessedMessage("m1"));
}

TEST_F(CompanionStoreTest, The201stDistinctIdDropsTheOldest) {
    for (const auto& id : numberedIds(201)) {
        store.recordProcessedMessage(id);
    }
    const auto ids = processedIds();
    ASSERT_EQ(ids.size(), 200u);
    EXPECT_EQ(ids.front(), "m2");
    EXPECT_EQ(ids.back(), "m201");
    EXPECT_FALSE(store.hasProcessedMessage("m1"));
    EXPECT_TRUE(store.hasProcessedMessage("m201"));
}

TEST_F(CompanionStoreTest, RecordingAnIdAlreadyPresentChangesNothingNotEvenItsPosition) {
    for (const auto& id : numberedIds(200)) {
        store.recordProcessedMessage(id);
    }
    store.recordProcessedMessage("m1");
    EXPECT_EQ(processedIds(), numberedIds(200));

    store.recordProcessedMessage("new");
    const auto ids = processedIds();
    EXPECT_EQ(ids.front(), "m2"); // m1 was still the oldest
    EXPECT_EQ(ids.back(), "new");
}

TEST_F(CompanionStoreTest, RecordingAnIdAlreadyPresentWritesNothing) {
    defaults.setStringArray("quillix.processedMessageIds", numberedIds(250));
    store.recordProcessedMessage("m7");
    EXPECT_EQ(processedIds().size(), 250u); // not cut back: nothing new was recorded
}

TEST_F(CompanionStoreTest, OverLongListWrittenElsewhereIsCutBackTo200OnTheNextNewId) {
    defaults.setStringArray("quillix.processedMessageIds", numberedIds(250));
    EXPECT_TRUE(store.hasProcessedMessage("m1"));

    store.recordProcessedMessage("new");
    const auto ids = processedIds();
    ASSERT_EQ(ids.size(), 200u);
    EXPECT_EQ(ids.front(), "m52");
    EXPECT_EQ(ids[198], "m250");
    EXPECT_EQ(ids.back(), "new");
}

TEST_F(CompanionStoreTest, ListOf201IsCutBackTo200OnTheNextNewId) {
    defaults.setStringArray("quillix.processedMessageIds", numberedIds(201));
    store.recordProcessedMessage("new");
    const auto ids = processedIds();
    ASSERT_EQ(ids.size(), 200u);
    EXPECT_EQ(ids.front(), "m3");
    EXPECT_EQ(ids.back(), "new");
}

TEST_F(CompanionStoreTest, ProcessedListOfAnotherTypeCountsAsEmpty) {
    defaults.values["quillix.processedMessageIds"] = std::string("A");
    EXPECT_FALSE(store.hasProcessedMessage("A"));
    store.recordProcessedMessage("B");
    EXPECT_EQ(processedIds(), (std::vector<std::string>{"B"}));
}

TEST_F(CompanionStoreTest, ProcessedMessagesNeverTouchTheKeychain) {
    store.recordProcessedMessage("A");
    EXPECT_TRUE(store.hasProcessedMessage("A"));
    EXPECT_TRUE(secrets.calls().empty());
}

TEST_F(CompanionStoreTest, TokenIsNeverWrittenToTheDefaults) {
    ASSERT_EQ(store.savePairing("computer-1", "secret-token", true), std::nullopt);
    for (const auto& [key, value] : defaults.values) {
        const auto* text = std::get_if<std::string>(&value);
        EXPECT_FALSE(text != nullptr && *text == "secret-token") << key;
    }
    EXPECT_EQ(defaults.values.size(), 2u);
}

TEST_F(CompanionStoreTest, ConcurrentRecordingFromSeveralThreadsLosesNoId) {
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([this, thread] {
            for (const auto& id : numberedIds(50, "t" + std::to_string(thread) + "-")) {
                store.recordProcessedMessage(id);
                EXPECT_TRUE(store.hasProcessedMessage(id));
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(processedIds().size(), 200u);
    EXPECT_TRUE(store.hasProcessedMessage("t0-50"));
    EXPECT_TRUE(store.hasProcessedMessage("t3-1"));
}

} // namespace
} // namespace keyferry
