// The Secret Service backend against gnome-keyring on a private D-Bus session bus, and without any service.
#include "SecretServiceBackend.h"
#include "PrivateSessionBus.h"
#include "Wait.h"

#include <gtest/gtest.h>
#include <libsecret/secret.h>

#include <chrono>

namespace keyferry {
namespace {

using namespace std::chrono_literals;

const SecretQuery token{"com.quillix.companion", "computer-token"};

// Waits until the keyring answers on the bus (it registers its name shortly after starting).
void waitForKeyring(SecretServiceBackend& backend) {
    std::string ignored;
    testing::waitUntil(
        [&] {
            return backend.find(SecretQuery{"keyferry.test", "probe"}, ignored) !=
                   SecretServiceBackend::secretNotAvailable;
        },
        20s);
}

class SecretServiceBackendTest : public ::testing::Test {
protected:
    void SetUp() override {
        bus.startKeyring();
        waitForKeyring(backend);
    }

    PrivateSessionBus bus;
    SecretServiceBackend backend;
};

TEST_F(SecretServiceBackendTest, WritesReadsOverwritesAndDeletesAnItem) {
    std::string value;
    EXPECT_EQ(backend.find(token, value), secretItemNotFound);
    EXPECT_EQ(backend.update(token, "first"), secretItemNotFound);

    EXPECT_EQ(backend.add(token, "first", SecretAccessibility::afterFirstUnlock), secretSuccess);
    EXPECT_EQ(backend.find(token, value), secretSuccess);
    EXPECT_EQ(value, "first");

    EXPECT_EQ(backend.update(token, "second value"), secretSuccess);
    EXPECT_EQ(backend.find(token, value), secretSuccess);
    EXPECT_EQ(value, "second value");

    EXPECT_EQ(backend.remove(token), secretSuccess);
    EXPECT_EQ(backend.find(token, value), secretItemNotFound);
    EXPECT_EQ(backend.remove(token), secretItemNotFound);
}

TEST_F(SecretServiceBackendTest, KeepsBytesExactlyAndAccountsApart) {
    const std::string bytes("a\0b\xff\xfe\n\xc3\xa9", 8);
    const SecretQuery other{token.service, "other-account"};
    ASSERT_EQ(backend.add(token, bytes, SecretAccessibility::afterFirstUnlock), secretSuccess);
    ASSERT_EQ(backend.add(other, "other", SecretAccessibility::afterFirstUnlock), secretSuccess);
    std::string value;
    ASSERT_EQ(backend.find(token, value), secretSuccess);
    EXPECT_EQ(value, bytes);
    ASSERT_EQ(backend.find(other, value), secretSuccess);
    EXPECT_EQ(value, "other");
}

TEST_F(SecretServiceBackendTest, AddingAgainReplacesTheItem) {
    ASSERT_EQ(backend.add(token, "old", SecretAccessibility::afterFirstUnlock), secretSuccess);
    ASSERT_EQ(backend.add(token, "new", SecretAccessibility::afterFirstUnlock), secretSuccess);
    std::string value;
    ASSERT_EQ(backend.find(token, value), secretSuccess);
    EXPECT_EQ(value, "new");
    ASSERT_EQ(backend.remove(token), secretSuccess);
    EXPECT_EQ(backend.find(token, value), secretItemNotFound);
}

// The schema libsecret applications (and earlier Keyferry versions) store these items under.
const SecretSchema& librarySchema() {
    static const SecretSchema schema = [] {
        SecretSchema built{};
        built.name = "com.quillix.companion.GenericPassword";
        built.flags = SECRET_SCHEMA_NONE;
        built.attributes[0] = {"service", SECRET_SCHEMA_ATTRIBUTE_STRING};
        built.attributes[1] = {"account", SECRET_SCHEMA_ATTRIBUTE_STRING};
        return built;
    }();
    return schema;
}

TEST_F(SecretServiceBackendTest, ReadsAndReplacesWhatLibsecretStored) {
    GError* error = nullptr;
    ASSERT_TRUE(secret_password_store_sync(&librarySchema(), SECRET_COLLECTION_DEFAULT, "stored earlier",
                                           "token-from-before", nullptr, &error, "service", token.service.c_str(),
                                           "account", token.account.c_str(), nullptr));
    std::string value;
    ASSERT_EQ(backend.find(token, value), secretSuccess);
    EXPECT_EQ(value, "token-from-before");

    ASSERT_EQ(backend.add(token, "token-now", SecretAccessibility::afterFirstUnlock), secretSuccess);
    gchar* stored = secret_password_lookup_sync(&librarySchema(), nullptr, &error, "service", token.service.c_str(),
                                                "account", token.account.c_str(), nullptr);
    ASSERT_NE(stored, nullptr);
    EXPECT_STREQ(stored, "token-now");
    secret_password_free(stored);
    EXPECT_EQ(backend.remove(token), secretSuccess);
    EXPECT_EQ(backend.find(token, value), secretItemNotFound);
}

TEST_F(SecretServiceBackendTest, LockedKeyringAnswersWithoutPrompting) {
    ASSERT_EQ(backend.add(token, "secret", SecretAccessibility::afterFirstUnlock), secretSuccess);
    GError* error = nullptr;
    SecretService* service = secret_service_get_sync(SECRET_SERVICE_LOAD_COLLECTIONS, nullptr, &error);
    ASSERT_NE(service, nullptr);
    GList* collections = secret_service_get_collections(service);
    ASSERT_GT(secret_service_lock_sync(service, collections, nullptr, nullptr, &error), 0);
    g_list_free_full(collections, g_object_unref);
    g_object_unref(service);

    const auto started = std::chrono::steady_clock::now();
    std::string value;
    EXPECT_EQ(backend.find(token, value), SecretServiceBackend::secretInteractionNotAllowed);
    EXPECT_EQ(backend.update(token, "other"), SecretServiceBackend::secretInteractionNotAllowed);
    EXPECT_EQ(backend.add(token, "other", SecretAccessibility::afterFirstUnlock),
              SecretServiceBackend::secretInteractionNotAllowed);
    EXPECT_LT(std::chrono::steady_clock::now() - started, 3s);
}

TEST(SecretServiceBackendWithoutKeyringTest, FailsFastWhenNoSecretServiceRuns) {
    PrivateSessionBus bus;
    SecretServiceBackend backend;
    const auto started = std::chrono::steady_clock::now();
    std::string value;
    EXPECT_EQ(backend.find(token, value), SecretServiceBackend::secretNotAvailable);
    EXPECT_EQ(backend.update(token, "value"), SecretServiceBackend::secretNotAvailable);
    EXPECT_EQ(backend.add(token, "value", SecretAccessibility::afterFirstUnlock),
              SecretServiceBackend::secretNotAvailable);
    EXPECT_EQ(backend.remove(token), SecretServiceBackend::secretNotAvailable);
    EXPECT_LT(std::chrono::steady_clock::now() - started, 5s);
}

TEST(SecretServiceBackendWithoutKeyringTest, GivesUpOnAServiceThatNeverAnswers) {
    PrivateSessionBus bus;
    HelperProcess silent({KEYFERRY_SILENT_SECRET_SERVICE});
    ASSERT_EQ(silent.readLine(10s), std::optional<std::string>("ready"));
    SecretServiceBackend backend(1500ms);
    const auto started = std::chrono::steady_clock::now();
    std::string value;
    EXPECT_EQ(backend.find(token, value), SecretServiceBackend::secretNotAvailable);
    const auto elapsed = std::chrono::steady_clock::now() - started;
    EXPECT_GE(elapsed, 1400ms);
    EXPECT_LT(elapsed, 4s);
}

TEST(SecretServiceBackendWithoutKeyringTest, FailsFastWhenTheSessionBusIsUnreachable) {
    setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/keyferry-test-bus", 1);
    SecretServiceBackend backend;
    const auto started = std::chrono::steady_clock::now();
    std::string value;
    EXPECT_EQ(backend.find(token, value), SecretServiceBackend::secretNotAvailable);
    EXPECT_EQ(backend.add(token, "value", SecretAccessibility::afterFirstUnlock),
              SecretServiceBackend::secretNotAvailable);
    EXPECT_LT(std::chrono::steady_clock::now() - started, 5s);
}

} // namespace
} // namespace keyferry
