#include "ApiRecords.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <string>

namespace keyferry {
namespace {

constexpr const char* fullPairing =
    R"({"computerId":"c1","computerToken":"tok","pairCode":"123456","expiresAt":1800000300000,"status":"pending","platform":"linux"})";

constexpr const char* fullStatus =
    R"({"computerId":"c1","name":"Desk","status":"active","paired":true,"expiresAt":1800000300000,"pairedDeviceCount":2,"pairingPending":false,"pairingExpired":false})";

constexpr const char* onePhone =
    R"({"id":"p1","name":"Pixel","platform":"android","appVersion":"1.2.0","createdAt":1700000000000,"lastSeenAt":1700000500000})";

// `fullStatus` with one member replaced by raw JSON (or removed when `value` is empty).
std::string statusWith(const std::string& key, const std::string& value) {
    auto object = nlohmann::json::parse(fullStatus);
    object.erase(key);
    std::string json = object.dump();
    if (!value.empty()) {
        json.insert(1, "\"" + key + "\":" + value + ",");
    }
    return json;
}

TEST(PairingResponseDecoding, AllFields) {
    const auto response = PairingResponse::decode(fullPairing);
    ASSERT_TRUE(response);
    EXPECT_EQ(response->computerId, "c1");
    EXPECT_EQ(response->computerToken, "tok");
    EXPECT_EQ(response->pairCode, "123456");
    EXPECT_EQ(response->expiresAt, 1'800'000'300'000);
    EXPECT_EQ(response->status, "pending");
    EXPECT_EQ(response->platform, "linux");
}

TEST(PairingResponseDecoding, WithoutComputerTokenDecodes) {
    const auto response =
        PairingResponse::decode(R"({"computerId":"c1","pairCode":"123456","expiresAt":5,"status":"pending"})");
    ASSERT_TRUE(response);
    EXPECT_FALSE(response->computerToken);
    EXPECT_FALSE(response->platform);
}

TEST(PairingResponseDecoding, NullOptionalsAreAbsent) {
    const auto response = PairingResponse::decode(
        R"({"computerId":"c1","computerToken":null,"pairCode":"1","expiresAt":5,"status":"s","platform":null})");
    ASSERT_TRUE(response);
    EXPECT_FALSE(response->computerToken);
    EXPECT_FALSE(response->platform);
}

TEST(PairingResponseDecoding, WithoutPairCodeFails) {
    EXPECT_FALSE(PairingResponse::decode(R"({"computerId":"c1","computerToken":"t","expiresAt":5,"status":"s"})"));
}

TEST(PairingResponseDecoding, EachRequiredFieldMissingOrNullFails) {
    for (const char* key : {"computerId", "pairCode", "expiresAt", "status"}) {
        auto object = nlohmann::json::parse(fullPairing);
        object.erase(key);
        EXPECT_FALSE(PairingResponse::decode(object.dump())) << "missing " << key;
        object[key] = nullptr;
        EXPECT_FALSE(PairingResponse::decode(object.dump())) << "null " << key;
    }
}

TEST(PairingResponseDecoding, WrongTypesFail) {
    auto object = nlohmann::json::parse(fullPairing);
    object["computerToken"] = 12;
    EXPECT_FALSE(PairingResponse::decode(object.dump()));
    object = nlohmann::json::parse(fullPairing);
    object["pairCode"] = 123456;
    EXPECT_FALSE(PairingResponse::decode(object.dump()));
    object = nlohmann::json::parse(fullPairing);
    object["expiresAt"] = "1800000300000";
    EXPECT_FALSE(PairingResponse::decode(object.dump()));
    object = nlohmann::json::parse(fullPairing);
    object["platform"] = nlohmann::json::array({"linux"});
    EXPECT_FALSE(PairingResponse::decode(object.dump()));
}

TEST(PairingResponseDecoding, FractionalExpiresAtFails) {
    EXPECT_FALSE(PairingResponse::decode(R"({"computerId":"c","pairCode":"1","expiresAt":1.5,"status":"s"})"));
}

TEST(PairingResponseDecoding, ExpiresAtWrittenAsFloatFailsEvenWhenWhole) {
    EXPECT_FALSE(PairingResponse::decode(R"({"computerId":"c","pairCode":"1","expiresAt":1e3,"status":"s"})"));
    EXPECT_FALSE(PairingResponse::decode(R"({"computerId":"c","pairCode":"1","expiresAt":1000.0,"status":"s"})"));
}

TEST(PairingResponseDecoding, ExpiresAtAtTheInt64LimitsDecodes) {
    const auto highest =
        PairingResponse::decode(R"({"computerId":"c","pairCode":"1","expiresAt":9223372036854775807,"status":"s"})");
    ASSERT_TRUE(highest);
    EXPECT_EQ(highest->expiresAt, INT64_MAX);
    const auto lowest =
        PairingResponse::decode(R"({"computerId":"c","pairCode":"1","expiresAt":-9223372036854775808,"status":"s"})");
    ASSERT_TRUE(lowest);
    EXPECT_EQ(lowest->expiresAt, INT64_MIN);
}

TEST(PairingResponseDecoding, ExpiresAtBeyondInt64Fails) {
    EXPECT_FALSE(
        PairingResponse::decode(R"({"computerId":"c","pairCode":"1","expiresAt":9223372036854775808,"status":"s"})"));
    EXPECT_FALSE(
        PairingResponse::decode(R"({"computerId":"c","pairCode":"1","expiresAt":18446744073709551616,"status":"s"})"));
    EXPECT_FALSE(
        PairingResponse::decode(R"({"computerId":"c","pairCode":"1","expiresAt":-9223372036854775809,"status":"s"})"));
    EXPECT_FALSE(PairingResponse::decode(
        R"({"computerId":"c","pairCode":"1","expiresAt":123456789012345678901234567890,"status":"s"})"));
}

TEST(PairStatusResponseDecoding, AllFields) {
    const auto status = PairStatusResponse::decode(fullStatus);
    ASSERT_TRUE(status);
    EXPECT_EQ(status->computerId, "c1");
    EXPECT_EQ(status->name, "Desk");
    EXPECT_EQ(status->status, "active");
    EXPECT_TRUE(status->paired);
    EXPECT_EQ(status->expiresAt, 1'800'000'300'000);
    EXPECT_EQ(status->pairedDeviceCount, 2);
    EXPECT_EQ(status->pairingPending, false);
    EXPECT_EQ(status->pairingExpired, false);
}

TEST(PairStatusResponseDecoding, NullPairingPendingIsAbsent) {
    const auto status = PairStatusResponse::decode(statusWith("pairingPending", "null"));
    ASSERT_TRUE(status);
    EXPECT_FALSE(status->pairingPending);
}

TEST(PairStatusResponseDecoding, OptionalFieldsMayBeMissing) {
    const auto status = PairStatusResponse::decode(
        R"({"computerId":"c1","name":"Desk","status":"waiting","paired":false,"expiresAt":0})");
    ASSERT_TRUE(status);
    EXPECT_FALSE(status->pairedDeviceCount);
    EXPECT_FALSE(status->pairingPending);
    EXPECT_FALSE(status->pairingExpired);
}

TEST(PairStatusResponseDecoding, RequiredFieldsMissingOrNullFail) {
    for (const char* key : {"computerId", "name", "status", "paired", "expiresAt"}) {
        EXPECT_FALSE(PairStatusResponse::decode(statusWith(key, ""))) << "missing " << key;
        EXPECT_FALSE(PairStatusResponse::decode(statusWith(key, "null"))) << "null " << key;
    }
}

TEST(PairStatusResponseDecoding, WrongTypesFail) {
    EXPECT_FALSE(PairStatusResponse::decode(statusWith("paired", "1")));
    EXPECT_FALSE(PairStatusResponse::decode(statusWith("paired", "\"true\"")));
    EXPECT_FALSE(PairStatusResponse::decode(statusWith("status", "true")));
    EXPECT_FALSE(PairStatusResponse::decode(statusWith("pairingPending", "0")));
    EXPECT_FALSE(PairStatusResponse::decode(statusWith("pairingExpired", "\"false\"")));
    EXPECT_FALSE(PairStatusResponse::decode(statusWith("pairedDeviceCount", "2.5")));
    EXPECT_FALSE(PairStatusResponse::decode(statusWith("pairedDeviceCount", "\"2\"")));
    EXPECT_FALSE(PairStatusResponse::decode(statusWith("expiresAt", "1.5")));
}

TEST(PairedPhonesResponseDecoding, PhonesInTheServicesOrder) {
    const std::string json =
        std::string(R"({"phones":[)") + onePhone +
        R"(,{"id":"p2","name":"iPhone","platform":"ios","appVersion":"2.0","createdAt":-1,"lastSeenAt":0}]})";
    const auto response = PairedPhonesResponse::decode(json);
    ASSERT_TRUE(response);
    ASSERT_EQ(response->phones.size(), 2u);
    EXPECT_EQ(response->phones[0],
              (PairedPhone{"p1", "Pixel", "android", "1.2.0", 1'700'000'000'000, 1'700'000'500'000}));
    EXPECT_EQ(response->phones[1], (PairedPhone{"p2", "iPhone", "ios", "2.0", -1, 0}));
}

TEST(PairedPhonesResponseDecoding, EmptyPhonesArrayIsAnEmptyList) {
    const auto response = PairedPhonesResponse::decode(R"({"phones":[]})");
    ASSERT_TRUE(response);
    EXPECT_TRUE(response->phones.empty());
}

TEST(PairedPhonesResponseDecoding, MissingNullOrNonArrayPhonesFails) {
    EXPECT_FALSE(PairedPhonesResponse::decode("{}"));
    EXPECT_FALSE(PairedPhonesResponse::decode(R"({"phones":null})"));
    EXPECT_FALSE(PairedPhonesResponse::decode(std::string(R"({"phones":)") + onePhone + "}"));
    EXPECT_FALSE(PairedPhonesResponse::decode(R"({"phones":"none"})"));
}

TEST(PairedPhonesResponseDecoding, OneBadPhoneFailsTheWholeList) {
    auto bad = nlohmann::json::parse(onePhone);
    bad["lastSeenAt"] = 1.25;
    const auto json = nlohmann::json{{"phones", {nlohmann::json::parse(onePhone), bad}}}.dump();
    EXPECT_FALSE(PairedPhonesResponse::decode(json));
    EXPECT_FALSE(PairedPhonesResponse::decode(std::string(R"({"phones":[)") + onePhone + ",null]}"));
    EXPECT_FALSE(PairedPhonesResponse::decode(std::string(R"({"phones":[)") + onePhone + ",\"p2\"]}"));
}

TEST(PairedPhonesResponseDecoding, EachPhoneFieldIsRequired) {
    for (const char* key : {"id", "name", "platform", "appVersion", "createdAt", "lastSeenAt"}) {
        auto phone = nlohmann::json::parse(onePhone);
        phone.erase(key);
        EXPECT_FALSE(PairedPhonesResponse::decode(nlohmann::json{{"phones", {phone}}}.dump())) << "missing " << key;
        phone[key] = nullptr;
        EXPECT_FALSE(PairedPhonesResponse::decode(nlohmann::json{{"phones", {phone}}}.dump())) << "null " << key;
    }
}

TEST(RemovePhoneResponseDecoding, EmptyObjectFailsBecauseTheFlagIsRequired) {
    EXPECT_FALSE(RemovePhoneResponse::decode("{}"));
}

TEST(RemovePhoneResponseDecoding, RemovedFalseDecodes) {
    const auto response = RemovePhoneResponse::decode(R"({"removed":false})");
    ASSERT_TRUE(response);
    EXPECT_FALSE(response->removed);
}

TEST(RemovePhoneResponseDecoding, ExtraMessageKeyIsIgnored) {
    const auto response = RemovePhoneResponse::decode(R"({"message":"Phone removed","removed":true})");
    ASSERT_TRUE(response);
    EXPECT_TRUE(response->removed);
}

TEST(RemovePhoneResponseDecoding, NonBooleanRemovedFails) {
    EXPECT_FALSE(RemovePhoneResponse::decode(R"({"removed":1})"));
    EXPECT_FALSE(RemovePhoneResponse::decode(R"({"removed":"true"})"));
    EXPECT_FALSE(RemovePhoneResponse::decode(R"({"removed":null})"));
}

TEST(ApiRecordsDecoding, ExtraKeysAreIgnoredInEveryReply) {
    auto pairing = nlohmann::json::parse(fullPairing);
    pairing["message"] = "hello";
    pairing["nested"] = {{"a", {1, 2.5, nullptr}}};
    EXPECT_TRUE(PairingResponse::decode(pairing.dump()));
    auto status = nlohmann::json::parse(fullStatus);
    status["extra"] = 1.5;
    EXPECT_TRUE(PairStatusResponse::decode(status.dump()));
    auto phone = nlohmann::json::parse(onePhone);
    phone["model"] = "Pixel 8";
    EXPECT_TRUE(PairedPhonesResponse::decode(nlohmann::json{{"phones", {phone}}, {"total", 1}}.dump()));
}

TEST(ApiRecordsDecoding, ShapesThatAreNotOneObjectFailCleanly) {
    for (const std::string json :
         {"", " ", "null", "true", "42", "\"text\"", "[]", R"([{"removed":true}])", R"({"removed":true)",
          R"({"removed":tru})", R"({"removed":true}})", R"({"removed":true} {"removed":true})", R"({'removed':true})",
          R"({"removed":true,})"}) {
        EXPECT_FALSE(RemovePhoneResponse::decode(json)) << json;
    }
}

TEST(ApiRecordsDecoding, TruncatedRepliesFailAtEveryCut) {
    const std::string json = fullPairing;
    for (std::size_t length = 0; length < json.size(); ++length) {
        EXPECT_FALSE(PairingResponse::decode(json.substr(0, length))) << length;
    }
    EXPECT_TRUE(PairingResponse::decode(json));
}

TEST(ApiRecordsDecoding, InvalidUtf8FailsCleanly) {
    const std::string badInString = "{\"computerId\":\"c\xFF\",\"pairCode\":\"1\",\"expiresAt\":5,\"status\":\"s\"}";
    EXPECT_FALSE(PairingResponse::decode(badInString));
    const std::string overlong = "{\"removed\":true,\"m\":\"\xC0\xAF\"}";
    EXPECT_FALSE(RemovePhoneResponse::decode(overlong));
    const std::string encodedSurrogate = "{\"removed\":true,\"m\":\"\xED\xA0\x80\"}";
    EXPECT_FALSE(RemovePhoneResponse::decode(encodedSurrogate));
    const std::string outsideString = "{\"removed\":true}\xFF";
    EXPECT_FALSE(RemovePhoneResponse::decode(outsideString));
}

TEST(ApiRecordsDecoding, EmbeddedNulByteInTheReplyFails) {
    const std::string json("{\"removed\":true}\0", 17);
    EXPECT_FALSE(RemovePhoneResponse::decode(json));
    const std::string insideString("{\"removed\":true,\"m\":\"a\0b\"}", 26);
    EXPECT_FALSE(RemovePhoneResponse::decode(insideString));
}

TEST(ApiRecordsDecoding, DeeplyNestedJunkFailsWithoutCrashing) {
    const std::string deep = R"({"removed":true,"junk":)" + std::string(100'000, '[') + std::string(100'000, ']') + "}";
    const auto response = RemovePhoneResponse::decode(deep);
    ASSERT_TRUE(response); // the junk is an unknown key, so it is ignored
    EXPECT_TRUE(response->removed);
    EXPECT_FALSE(RemovePhoneResponse::decode(std::string(100'000, '[')));
}

TEST(PairedPhone, EqualOnlyWhenAllSixFieldsAreEqual) {
    const PairedPhone phone{"p1", "Pixel", "android", "1.2.0", 10, 20};
    EXPECT_EQ(phone, (PairedPhone{"p1", "Pixel", "android", "1.2.0", 10, 20}));
    EXPECT_NE(phone, (PairedPhone{"p2", "Pixel", "android", "1.2.0", 10, 20}));
    EXPECT_NE(phone, (PairedPhone{"p1", "pixel", "android", "1.2.0", 10, 20}));
    EXPECT_NE(phone, (PairedPhone{"p1", "Pixel", "ios", "1.2.0", 10, 20}));
    EXPECT_NE(phone, (PairedPhone{"p1", "Pixel", "android", "1.2.1", 10, 20}));
    EXPECT_NE(phone, (PairedPhone{"p1", "Pixel", "android", "1.2.0", 11, 20}));
    EXPECT_NE(phone, (PairedPhone{"p1", "Pixel", "android", "1.2.0", 10, 21}));
}

} // namespace
} // namespace keyferry
