#include "InMemorySecretBackend.h"

#include <gtest/gtest.h>

namespace keyferry::fakes {
namespace {

using Operation = InMemorySecretBackend::Operation;

const SecretQuery query{"com.quillix.companion", "computer-token"};

TEST(InMemorySecretBackend, StoresItemsByServiceAndAccountAndRecordsCalls) {
    InMemorySecretBackend secrets;
    std::string value;
    EXPECT_EQ(secrets.find(query, value), secretItemNotFound);
    EXPECT_EQ(secrets.update(query, "a"), secretItemNotFound);
    EXPECT_EQ(secrets.add(query, "a", SecretAccessibility::afterFirstUnlock), secretSuccess);
    EXPECT_EQ(secrets.add(query, "b", SecretAccessibility::afterFirstUnlock),
              InMemorySecretBackend::secretDuplicateItem);
    EXPECT_EQ(secrets.find(SecretQuery{"other", "computer-token"}, value), secretItemNotFound);
    EXPECT_EQ(secrets.find(query, value), secretSuccess);
    EXPECT_EQ(value, "a");
    EXPECT_EQ(secrets.remove(query), secretSuccess);
    EXPECT_EQ(secrets.remove(query), secretItemNotFound);

    ASSERT_EQ(secrets.calls().size(), 8u);
    EXPECT_EQ(secrets.calls()[2].operation, Operation::add);
    EXPECT_EQ(secrets.calls()[2].value, "a");
    EXPECT_EQ(secrets.callCount(Operation::find), 3u);
}

TEST(InMemorySecretBackend, ForcedStatusesApplyOnceOrUntilCleared) {
    InMemorySecretBackend secrets;
    secrets.plant(query, "token");
    std::string value;
    secrets.failNext(Operation::find, -1);
    EXPECT_EQ(secrets.find(query, value), -1);
    EXPECT_EQ(secrets.find(query, value), secretSuccess);

    secrets.failAlways(Operation::update, InMemorySecretBackend::secretInteractionNotAllowed);
    EXPECT_EQ(secrets.update(query, "new"), InMemorySecretBackend::secretInteractionNotAllowed);
    EXPECT_EQ(secrets.update(query, "new"), InMemorySecretBackend::secretInteractionNotAllowed);
    EXPECT_EQ(secrets.item(query)->value, "token");
    secrets.clearFailures();
    EXPECT_EQ(secrets.update(query, "new"), secretSuccess);
    EXPECT_EQ(secrets.item(query)->value, "new");
}

} // namespace
} // namespace keyferry::fakes
