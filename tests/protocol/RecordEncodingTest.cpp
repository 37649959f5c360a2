// What one side writes, the other reads back field for field; absent optional fields are not written.
#include "ApiRecords.h"
#include "SocketMessages.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <limits>

namespace keyferry {
namespace {

using nlohmann::json;

TEST(PairingResponseEncoding, EveryFieldReadsBack) {
    const PairingResponse written{"c1", "kfc_token", "123 456 789", 1'800'000'600'000, "pending", "linux"};
    const auto read = PairingResponse::decode(written.toJson().dump());
    ASSERT_TRUE(read);
    EXPECT_EQ(read->computerId, "c1");
    EXPECT_EQ(read->computerToken, "kfc_token");
    EXPECT_EQ(read->pairCode, "123 456 789");
    EXPECT_EQ(read->expiresAt, 1'800'000'600'000);
    EXPECT_EQ(read->status, "pending");
    EXPECT_EQ(read->platform, "linux");
}

TEST(PairingResponseEncoding, AbsentTokenAndPlatformAreNotWritten) {
    const json written = PairingResponse{"c1", std::nullopt, "123 456 789", 5, "active", std::nullopt}.toJson();
    EXPECT_FALSE(written.contains("computerToken"));
    EXPECT_FALSE(written.contains("platform"));
    const auto read = PairingResponse::decode(written.dump());
    ASSERT_TRUE(read);
    EXPECT_FALSE(read->computerToken);
    EXPECT_FALSE(read->platform);
}

TEST(PairStatusResponseEncoding, EveryFieldReadsBack) {
    const PairStatusResponse written{"c1", "Desk", "expired", false, std::numeric_limits<std::int64_t>::max(),
                                     2,    false,  true};
    const auto read = PairStatusResponse::decode(written.toJson().dump());
    ASSERT_TRUE(read);
    EXPECT_EQ(read->computerId, "c1");
    EXPECT_EQ(read->name, "Desk");
    EXPECT_EQ(read->status, "expired");
    EXPECT_FALSE(read->paired);
    EXPECT_EQ(read->expiresAt, std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(read->pairedDeviceCount, 2);
    EXPECT_EQ(read->pairingPending, false);
    EXPECT_EQ(read->pairingExpired, true);
}

TEST(PairStatusResponseEncoding, AbsentOptionalsAreNotWritten) {
    const json written = PairStatusResponse{"c1", "Desk", "active", true, 0, {}, {}, {}}.toJson();
    EXPECT_EQ(written.size(), 5u);
    const auto read = PairStatusResponse::decode(written.dump());
    ASSERT_TRUE(read);
    EXPECT_FALSE(read->pairedDeviceCount);
    EXPECT_FALSE(read->pairingPending);
    EXPECT_FALSE(read->pairingExpired);
}

TEST(PairedPhonesResponseEncoding, PhonesReadBackInOrder) {
    const PairedPhonesResponse written{{{"p1", "Pixel", "android", "1.0", 1, 2}, {"p2", "iPhone", "ios", "", 3, 4}}};
    const auto read = PairedPhonesResponse::decode(written.toJson().dump());
    ASSERT_TRUE(read);
    EXPECT_EQ(read->phones, written.phones);
}

TEST(PairedPhonesResponseEncoding, NoPhonesIsAnEmptyArray) {
    EXPECT_EQ(PairedPhonesResponse{}.toJson().dump(), R"({"phones":[]})");
    const auto read = PairedPhonesResponse::decode(PairedPhonesResponse{}.toJson().dump());
    ASSERT_TRUE(read);
    EXPECT_TRUE(read->phones.empty());
}

TEST(RemovePhoneResponseEncoding, BothAnswersReadBack) {
    for (const bool removed : {true, false}) {
        const auto read = RemovePhoneResponse::decode(RemovePhoneResponse{removed}.toJson().dump());
        ASSERT_TRUE(read);
        EXPECT_EQ(read->removed, removed);
    }
}

TEST(RequestBodies, PairStartAndRemovalReadBack) {
    const auto start = PairStartRequest::decode(PairStartRequest{"Desk \"2\"", "linux"}.toJson().dump());
    ASSERT_TRUE(start);
    EXPECT_EQ(start->name, "Desk \"2\"");
    EXPECT_EQ(start->platform, "linux");
    const auto removal = RemovePhoneRequest::decode(RemovePhoneRequest{"p1"}.toJson().dump());
    ASSERT_TRUE(removal);
    EXPECT_EQ(removal->pairingId, "p1");
}

TEST(RequestBodies, ReadStrictly) {
    EXPECT_FALSE(PairStartRequest::decode(R"({"name":"Desk"})"));
    EXPECT_FALSE(PairStartRequest::decode(R"({"name":"Desk","platform":null})"));
    EXPECT_FALSE(PairStartRequest::decode(R"({"name":5,"platform":"linux"})"));
    EXPECT_FALSE(PairStartRequest::decode(R"(["Desk","linux"])"));
    EXPECT_FALSE(RemovePhoneRequest::decode(R"({"pairingId":["p1"]})"));
    EXPECT_FALSE(RemovePhoneRequest::decode(std::string(R"({"pairingId":"p1"})") + '\0'));
}

TEST(ServerMessageEncoding, EachServiceFrameReadsBack) {
    const auto connected = ServerMessage::decode(ServerMessage::connected().encode());
    ASSERT_TRUE(connected);
    EXPECT_EQ(connected->type, "connected");
    EXPECT_FALSE(connected->id);
    EXPECT_FALSE(connected->text);
    const auto changed = ServerMessage::decode(ServerMessage::phonesChanged().encode());
    ASSERT_TRUE(changed);
    EXPECT_EQ(changed->type, "phones_changed");
    const auto insert = ServerMessage::decode(ServerMessage::insertText("t1", "Grüße\n\"x\"").encode());
    ASSERT_TRUE(insert);
    EXPECT_EQ(insert->type, "insert_text");
    EXPECT_EQ(insert->id, "t1");
    EXPECT_EQ(insert->text, "Grüße\n\"x\"");
}

TEST(ServerMessageEncoding, IsCompactAndWritesNothingAbsent) {
    EXPECT_EQ(ServerMessage::connected().encode(), R"({"type":"connected"})");
    EXPECT_EQ(ServerMessage::insertText("t1", "hi").encode(), R"({"id":"t1","text":"hi","type":"insert_text"})");
}

TEST(ServerMessageEncoding, AFrameThatCannotBeWrittenEncodesAsNothing) {
    EXPECT_EQ(ServerMessage::insertText("t1", "\xFF").encode(), "");
}

TEST(SocketReplyDecoding, AnAcknowledgementReadsBack) {
    const auto read = SocketReply::decode(SocketReply::ack("t1").encode());
    ASSERT_TRUE(read);
    EXPECT_EQ(read->type, "ack");
    EXPECT_EQ(read->id, "t1");
    EXPECT_FALSE(read->at);
    const auto timed = SocketReply::decode(R"({"type":"ack","id":"t2","at":1800000000000})");
    ASSERT_TRUE(timed);
    EXPECT_EQ(timed->at, 1'800'000'000'000);
}

TEST(SocketReplyDecoding, ReadsStrictly) {
    EXPECT_FALSE(SocketReply::decode(R"({"id":"t1"})"));
    EXPECT_FALSE(SocketReply::decode(R"({"type":"ack","id":7})"));
    EXPECT_FALSE(SocketReply::decode(R"({"type":"ack","id":"t1","at":1.5})"));
    EXPECT_FALSE(SocketReply::decode(R"({"type":"ack","id":"t1"} trailing)"));
    EXPECT_FALSE(SocketReply::decode("not json"));
}

} // namespace
} // namespace keyferry
