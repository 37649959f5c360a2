#include "KeychainStore.h"
#include "InMemorySecretBackend.h"

#include <gtest/gtest.h>

namespace keyferry {
namespace {

using fakes::InMemorySecretBackend;
using Operation = InMemorySecretBackend::Operation;

const SecretQuery tokenItem{"com.quillix.companion", "computer-token"};

class KeychainStoreTest : public testing::Test {
protected:
    InMemorySecretBackend secrets;
    KeychainStore keychain{secrets, "com.quillix.companion"};
};

TEST_F(KeychainStoreTest, BaseQueryIsServiceAndAccount) {
    EXPECT_EQ(keychain.baseQuery("computer-token"), tokenItem);
}

TEST_F(KeychainStoreTest, ReadingAnAccountNeverWrittenIsNothing) {
    EXPECT_EQ(keychain.string("computer-token"), std::nullopt);
    ASSERT_EQ(secrets.calls().size(), 1u);
    EXPECT_EQ(secrets.calls()[0].operation, Operation::find);
    EXPECT_EQ(secrets.calls()[0].query, tokenItem);
}

TEST_F(KeychainStoreTest, FirstWriteUpdatesThenAddsWithAfterFirstUnlock) {
    EXPECT_EQ(keychain.set("token-1", "computer-token"), std::nullopt);

    ASSERT_EQ(secrets.calls().size(), 2u);
    EXPECT_EQ(secrets.calls()[0].operation, Operation::update);
    EXPECT_EQ(secrets.calls()[1].operation, Operation::add);
    EXPECT_EQ(secrets.calls()[1].query, tokenItem);
    const auto item = secrets.item(tokenItem);
    ASSERT_TRUE(item);
    EXPECT_EQ(item->value, "token-1");
    EXPECT_EQ(item->accessibility, SecretAccessibility::afterFirstUnlock);
    EXPECT_EQ(keychain.string("computer-token"), "token-1");
}

TEST_F(KeychainStoreTest, SecondWriteUpdatesInPlaceWithoutAdding) {
    ASSERT_EQ(keychain.set("token-1", "computer-token"), std::nullopt);
    secrets.clearCalls();

    EXPECT_EQ(keychain.set("token-2", "computer-token"), std::nullopt);
    ASSERT_EQ(secrets.calls().size(), 1u);
    EXPECT_EQ(secrets.calls()[0].operation, Operation::update);
    EXPECT_EQ(secrets.calls()[0].value, "token-2");
    EXPECT_EQ(secrets.itemCount(), 1u);
    EXPECT_EQ(secrets.item(tokenItem)->value, "token-2");
}

TEST_F(KeychainStoreTest, UpdateFailingOtherThanNotFoundIsReportedAndNothingIsAdded) {
    secrets.failNext(Operation::update, InMemorySecretBackend::secretInteractionNotAllowed);
    const auto error = keychain.set("token", "computer-token");
    ASSERT_TRUE(error);
    EXPECT_EQ(error->status, InMemorySecretBackend::secretInteractionNotAllowed);
    EXPECT_EQ(secrets.callCount(Operation::add), 0u);
    EXPECT_EQ(secrets.itemCount(), 0u);
}

TEST_F(KeychainStoreTest, AddFailureIsReportedWithTheAddsStatus) {
    secrets.failNext(Operation::add, -34);
    const auto error = keychain.set("token", "computer-token");
    ASSERT_TRUE(error);
    EXPECT_EQ(error->status, -34);
}

TEST_F(KeychainStoreTest, StoredValueThatIsNotUtf8ReadsAsNothing) {
    secrets.plant(tokenItem, "tok\xC3");
    EXPECT_EQ(keychain.string("computer-token"), std::nullopt);
}

TEST_F(KeychainStoreTest, FailingReadIsNothingNotAnError) {
    secrets.plant(tokenItem, "token");
    secrets.failNext(Operation::find, InMemorySecretBackend::secretInteractionNotAllowed);
    EXPECT_EQ(keychain.string("computer-token"), std::nullopt);
    EXPECT_EQ(keychain.string("computer-token"), "token");
}

TEST_F(KeychainStoreTest, OtherServicesItemsAreNotTouched) {
    secrets.plant(SecretQuery{"com.other", "computer-token"}, "theirs");
    EXPECT_EQ(keychain.string("computer-token"), std::nullopt);
    ASSERT_EQ(keychain.set("ours", "computer-token"), std::nullopt);
    EXPECT_EQ(secrets.item(SecretQuery{"com.other", "computer-token"})->value, "theirs");
}

TEST_F(KeychainStoreTest, RemoveDeletesTheItemAndPassesTheStatusOn) {
    secrets.plant(tokenItem, "token");
    EXPECT_EQ(keychain.remove("computer-token"), secretSuccess);
    EXPECT_EQ(keychain.remove("computer-token"), secretItemNotFound);
    EXPECT_EQ(secrets.itemCount(), 0u);
}

} // namespace
} // namespace keyferry
