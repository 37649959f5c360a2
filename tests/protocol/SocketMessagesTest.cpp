#include "SocketMessages.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

namespace keyferry {
namespace {

TEST(ServerMessageDecoding, InsertTextWithIdAndText) {
    const auto message = ServerMessage::decode(R"({"type":"insert_text","id":"A","text":"héllo"})");
    ASSERT_TRUE(message);
    EXPECT_EQ(message->type, "insert_text");
    EXPECT_EQ(message->id, "A");
    EXPECT_EQ(message->text, "héllo");
}

TEST(ServerMessageDecoding, TypeAloneDecodesWithIdAndTextAbsent) {
    const auto message = ServerMessage::decode(R"({"type":"connected"})");
    ASSERT_TRUE(message);
    EXPECT_EQ(message->type, "connected");
    EXPECT_FALSE(message->id);
    EXPECT_FALSE(message->text);
}

TEST(ServerMessageDecoding, NullIdAndTextAreAbsent) {
    const auto message = ServerMessage::decode(R"({"type":"insert_text","id":null,"text":null})");
    ASSERT_TRUE(message);
    EXPECT_FALSE(message->id);
    EXPECT_FALSE(message->text);
}

TEST(ServerMessageDecoding, TypeIsKeptExactlyAsSentCaseIncluded) {
    const auto message = ServerMessage::decode(R"({"type":"Connected"})");
    ASSERT_TRUE(message);
    EXPECT_EQ(message->type, "Connected");
}

TEST(ServerMessageDecoding, UnknownMembersAreIgnored) {
    const auto message = ServerMessage::decode(R"({"type":"pong","at":12,"extra":{"x":[1,2]}})");
    ASSERT_TRUE(message);
    EXPECT_EQ(message->type, "pong");
}

TEST(ServerMessageDecoding, MissingTypeFails) {
    EXPECT_FALSE(ServerMessage::decode(R"({"id":"A","text":"T"})"));
}

TEST(ServerMessageDecoding, NullTypeFails) {
    EXPECT_FALSE(ServerMessage::decode(R"({"type":null})"));
}

TEST(ServerMessageDecoding, NonStringTypeFails) {
    EXPECT_FALSE(ServerMessage::decode(R"({"type":1})"));
    EXPECT_FALSE(ServerMessage::decode(R"({"type":["insert_text"]})"));
    EXPECT_FALSE(ServerMessage::decode(R"({"type":true})"));
}

TEST(ServerMessageDecoding, NonStringIdOrTextFailsTheWholeFrame) {
    EXPECT_FALSE(ServerMessage::decode(R"({"type":"insert_text","id":7,"text":"T"})"));
    EXPECT_FALSE(ServerMessage::decode(R"({"type":"insert_text","id":"A","text":{"t":"T"}})"));
    EXPECT_FALSE(ServerMessage::decode(R"({"type":"insert_text","id":"A","text":false})"));
}

TEST(ServerMessageDecoding, ShapesThatAreNotOneObjectFail) {
    EXPECT_FALSE(ServerMessage::decode(""));
    EXPECT_FALSE(ServerMessage::decode("   "));
    EXPECT_FALSE(ServerMessage::decode("null"));
    EXPECT_FALSE(ServerMessage::decode(R"("insert_text")"));
    EXPECT_FALSE(ServerMessage::decode(R"([{"type":"connected"}])"));
    EXPECT_FALSE(ServerMessage::decode(R"({"type":"connected"})"
                                       R"({"type":"connected"})"));
    EXPECT_FALSE(ServerMessage::decode(R"({"type":"connected")"));
    EXPECT_FALSE(ServerMessage::decode(R"({type:"connected"})"));
}

TEST(ServerMessageDecoding, InvalidUtf8FailsCleanly) {
    EXPECT_FALSE(ServerMessage::decode("{\"type\":\"insert_text\",\"id\":\"A\",\"text\":\"\xC3\x28\"}"));
    EXPECT_FALSE(ServerMessage::decode("{\"type\":\"\xFF\"}"));
}

TEST(ServerMessageDecoding, EscapedTextDecodesToItsCharacters) {
    const auto message = ServerMessage::decode(R"({"type":"insert_text","id":"A","text":"a\r\nb\ud83d\ude00"})");
    ASSERT_TRUE(message);
    EXPECT_EQ(message->text, "a\r\nb\xF0\x9F\x98\x80");
}

TEST(SocketReplyEncoding, AckHasExactlyTypeAndId) {
    const std::string encoded = SocketReply::ack("A").encode();
    const auto object = nlohmann::json::parse(encoded);
    EXPECT_EQ(object, (nlohmann::json{{"type", "ack"}, {"id", "A"}}));
    EXPECT_EQ(object.size(), 2u);
}

TEST(SocketReplyEncoding, IsCompactJson) {
    EXPECT_EQ(SocketReply::ack("A").encode().find_first_of(" \n\t"), std::string::npos);
}

TEST(SocketReplyEncoding, AbsentIdAndAtAreNotWritten) {
    const SocketReply reply{"ping", std::nullopt, std::nullopt};
    EXPECT_EQ(reply.encode(), R"({"type":"ping"})");
}

TEST(SocketReplyEncoding, PresentAtIsWrittenAsAnInteger) {
    const SocketReply reply{"ack", "B", -9'000'000'000'000'000'000};
    const auto object = nlohmann::json::parse(reply.encode());
    EXPECT_TRUE(object["at"].is_number_integer());
    EXPECT_EQ(object["at"].get<std::int64_t>(), -9'000'000'000'000'000'000);
    EXPECT_EQ(object["id"], "B");
}

TEST(SocketReplyEncoding, IdWithQuotesAndUnicodeRoundTrips) {
    const std::string id = "id \"quoted\" \\ é \xF0\x9F\x98\x80";
    const auto object = nlohmann::json::parse(SocketReply::ack(id).encode());
    EXPECT_EQ(object["id"].get<std::string>(), id);
}

TEST(SocketReplyEncoding, ReplyThatCannotBeWrittenEncodesAsNothing) {
    EXPECT_EQ(SocketReply::ack("\xC3\x28").encode(), "");
}

} // namespace
} // namespace keyferry
