// The service as the application and the phone page meet it: real TLS on 127.0.0.1, a temporary data
// folder, and a manual clock so that code expiry needs no waiting.
#include "ApiRecords.h"
#include "ServiceCore.h"
#include "SocketMessages.h"
#include "WireTest.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

namespace keyferry::service {
namespace {

using nlohmann::json;
using namespace std::chrono_literals;

class ServiceWireTest : public WireTest {};

// The next frame of the computer's socket as the application decodes it; nothing when none comes or it does
// not decode.
std::optional<ServerMessage> nextMessage(WebSocketClient& socket) {
    const auto frame = socket.read();
    return frame ? ServerMessage::decode(frame->dump()) : std::nullopt;
}

TEST_F(ServiceWireTest, PairStartAnswersTheRecordTheApplicationDecodes) {
    const auto answer = client->post("/v1/computers/pair/start", "", json{{"name", "Desk"}, {"platform", "linux"}});
    ASSERT_EQ(answer.status, 200);
    EXPECT_EQ(answer.headers[boost::beast::http::field::content_type], "application/json");
    const auto record = PairingResponse::decode(answer.body);
    ASSERT_TRUE(record) << answer.body;
    EXPECT_FALSE(record->computerId.empty());
    EXPECT_TRUE(record->computerToken && !record->computerToken->empty());
    EXPECT_FALSE(record->pairCode.empty());
    EXPECT_EQ(record->expiresAt, clock.nowMs() + ServiceCore::codeLifetimeMs);
    EXPECT_EQ(record->status, "pending");
    EXPECT_EQ(record->platform, "linux");
}

TEST_F(ServiceWireTest, SocketFramesAreTheOnesTheApplicationDecodes) {
    const auto [computer, phone] = pairedComputer();
    WebSocketClient socket(server->port(), server->authority());
    ASSERT_EQ(socket.connect(computer.token), 101);
    const auto hello = nextMessage(socket);
    ASSERT_TRUE(hello);
    EXPECT_EQ(hello->type, "connected");

    const std::string id = sendText(phone, "Gr\u00fc\u00dfe \"1\"\n");
    const auto insert = nextMessage(socket);
    ASSERT_TRUE(insert);
    EXPECT_EQ(insert->type, "insert_text");
    EXPECT_EQ(insert->id, id);
    EXPECT_EQ(insert->text, "Gr\u00fc\u00dfe \"1\"\n");
    // The acknowledgement exactly as the application writes it.
    socket.send(json::parse(SocketReply::ack(id).encode()));
    EXPECT_TRUE(eventuallyState(phone, id, "typed"));

    addPhone(computer, "iPhone");
    const auto changed = nextMessage(socket);
    ASSERT_TRUE(changed);
    EXPECT_EQ(changed->type, "phones_changed");
}

TEST_F(ServiceWireTest, PairStartRefusesBadBodiesAndMethods) {
    EXPECT_EQ(client->post("/v1/computers/pair/start", "", std::string("not json")).status, 400);
    EXPECT_EQ(client->post("/v1/computers/pair/start", "", json{{"name", 5}, {"platform", "linux"}}).status, 400);
    EXPECT_EQ(client->post("/v1/computers/pair/start", "", json{{"platform", "linux"}}).status, 400);
    EXPECT_EQ(client->post("/v1/computers/pair/start", "", json::array()).status, 400);
    const auto wrongMethod = client->get("/v1/computers/pair/start");
    EXPECT_EQ(wrongMethod.status, 405);
    EXPECT_TRUE(wrongMethod.json["error"].is_string());
    EXPECT_EQ(client->get("/v1/computers/nothing").status, 404);
    EXPECT_EQ(client->get("/v2/anything").status, 404);
}

TEST_F(ServiceWireTest, OversizedBodiesAreRefusedWith413) {
    const std::string big = json{{"name", std::string(70 * 1024, 'x')}, {"platform", "linux"}}.dump();
    const auto answer = client->post("/v1/computers/pair/start", "", big);
    EXPECT_EQ(answer.status, 413);
    EXPECT_TRUE(answer.json["error"].is_string());
}

TEST_F(ServiceWireTest, ComputerEndpointsAnswer401ToBadTokens) {
    for (const std::string& token : {std::string(), std::string("kfc_wrong")}) {
        EXPECT_EQ(client->post("/v1/computers/pair/code", token).status, 401);
        EXPECT_EQ(client->get("/v1/computers/pair/status", token).status, 401);
        EXPECT_EQ(client->get("/v1/computers/phones", token).status, 401);
        const auto removal = client->post("/v1/computers/phones/remove", token, json{{"pairingId", "x"}});
        EXPECT_EQ(removal.status, 401);
        EXPECT_EQ(removal.json["error"], "The credential is not valid.");
    }
}

TEST_F(ServiceWireTest, PairStatusFollowsTheFirstPairing) {
    const Computer computer = startComputer();
    auto status = client->get("/v1/computers/pair/status", computer.token);
    ASSERT_EQ(status.status, 200);
    EXPECT_EQ(status.json["status"], "pending");
    EXPECT_EQ(status.json["paired"], false);
    EXPECT_EQ(status.json["computerId"], computer.id);
    EXPECT_EQ(status.json["name"], "Desk");
    pairPhone(computer.code);
    status = client->get("/v1/computers/pair/status", computer.token);
    EXPECT_EQ(status.json["status"], "active");
    EXPECT_EQ(status.json["paired"], true);
    EXPECT_EQ(status.json["pairedDeviceCount"], 1);
    EXPECT_EQ(status.json["pairingPending"], false);
}

TEST_F(ServiceWireTest, CodesExpireOnTheServiceClock) {
    const Computer computer = startComputer();
    clock.advanceMs(ServiceCore::codeLifetimeMs);
    EXPECT_EQ(client->get("/v1/computers/pair/status", computer.token).json["status"], "expired");
    const auto late = client->post("/v1/phones/pair", "", json{{"code", computer.code}, {"name", "Pixel"}});
    EXPECT_EQ(late.status, 404);
    EXPECT_EQ(late.json["error"], "This pairing code is wrong or has expired.");
}

TEST_F(ServiceWireTest, AddPhoneCodeAndItsStatus) {
    const auto [computer, phone] = pairedComputer();
    const auto code = client->post("/v1/computers/pair/code", computer.token);
    ASSERT_EQ(code.status, 200);
    EXPECT_FALSE(code.json.contains("computerToken"));
    EXPECT_EQ(code.json["computerId"], computer.id);
    EXPECT_EQ(client->get("/v1/computers/pair/status", computer.token).json["pairingPending"], true);
    pairPhone(code.json["pairCode"], "iPad");
    const auto status = client->get("/v1/computers/pair/status", computer.token);
    EXPECT_EQ(status.json["pairingPending"], false);
    EXPECT_EQ(status.json["pairingExpired"], false);
    EXPECT_EQ(status.json["pairedDeviceCount"], 2);
}

TEST_F(ServiceWireTest, GuessingCodesFromOneAddressIsLimited) {
    const Computer computer = startComputer();
    const std::string wrong = computer.code == "999 999 999" ? "999 999 998" : "999 999 999";
    int answered404 = 0;
    for (int i = 0; i < ServiceCore::wrongCodesPerClient; ++i) {
        answered404 += client->post("/v1/phones/pair", "", json{{"code", wrong}, {"name", "Pixel"}}).status == 404;
    }
    EXPECT_EQ(answered404, ServiceCore::wrongCodesPerClient);
    const auto limited = client->post("/v1/phones/pair", "", json{{"code", computer.code}, {"name", "Pixel"}});
    EXPECT_EQ(limited.status, 429);
    EXPECT_FALSE(limited.headers[boost::beast::http::field::retry_after].empty());
    // The guesser is stopped; the code itself stays live for the phone it was shown for.
    const auto status = client->get("/v1/computers/pair/status", computer.token);
    EXPECT_EQ(status.json["pairingPending"], true);
    EXPECT_EQ(status.json["pairingExpired"], false);
}

TEST_F(ServiceWireTest, PhonesListAndRemoval) {
    const auto [computer, phone] = pairedComputer();
    const auto list = client->get("/v1/computers/phones", computer.token);
    ASSERT_EQ(list.status, 200);
    ASSERT_EQ(list.json["phones"].size(), 1u);
    const json& entry = list.json["phones"][0];
    EXPECT_EQ(entry["id"], phone.pairingId);
    EXPECT_EQ(entry["name"], "Pixel");
    EXPECT_EQ(entry["platform"], "android");
    EXPECT_EQ(entry["appVersion"], "1.2");
    EXPECT_TRUE(entry["createdAt"].is_number_integer());
    EXPECT_TRUE(entry["lastSeenAt"].is_number_integer());

    EXPECT_EQ(client->post("/v1/computers/phones/remove", computer.token, json::object()).status, 400);
    EXPECT_EQ(client->post("/v1/computers/phones/remove", computer.token, json{{"pairingId", "nope"}}).json["removed"],
              false);
    const auto removed =
        client->post("/v1/computers/phones/remove", computer.token, json{{"pairingId", phone.pairingId}});
    EXPECT_EQ(removed.status, 200);
    EXPECT_EQ(removed.json["removed"], true);
    EXPECT_TRUE(client->get("/v1/computers/phones", computer.token).json["phones"].empty());
    EXPECT_EQ(client->get("/v1/phones/me", phone.token).status, 401);
}

TEST_F(ServiceWireTest, PhoneEndpoints) {
    const auto [computer, phone] = pairedComputer();
    const auto me = client->get("/v1/phones/me", phone.token);
    ASSERT_EQ(me.status, 200);
    EXPECT_EQ(me.json["pairingId"], phone.pairingId);
    EXPECT_EQ(me.json["computerName"], "Desk");
    EXPECT_EQ(me.json["computerOnline"], false);

    EXPECT_EQ(client->post("/v1/phones/texts", phone.token, json{{"text", 12}}).status, 400);
    EXPECT_EQ(client->post("/v1/phones/texts", phone.token, json{{"text", ""}}).status, 400);
    EXPECT_EQ(client->post("/v1/phones/texts", phone.token, json{{"text", std::string(10'001, 'a')}}).status, 413);
    EXPECT_EQ(client->post("/v1/phones/texts", "kfp_wrong", json{{"text", "hi"}}).status, 401);
    const auto sent = client->post("/v1/phones/texts", phone.token, json{{"text", "hello"}});
    ASSERT_EQ(sent.status, 200);
    EXPECT_EQ(sent.json["state"], "queued");
    EXPECT_EQ(sent.json["computerOnline"], false);
    EXPECT_EQ(textState(phone, sent.json["id"]), "queued");

    EXPECT_EQ(client->post("/v1/phones/pair", "", json{{"code", "12"}, {"name", "x"}}).status, 400);
    EXPECT_EQ(client->get("/v1/phones/unpair", phone.token).status, 405);
    EXPECT_EQ(client->post("/v1/phones/unpair", phone.token).json["unpaired"], true);
    EXPECT_EQ(client->get("/v1/phones/texts", phone.token).status, 401);
}

TEST_F(ServiceWireTest, PhonePageAndAuthorityAreServed) {
    const auto page = client->get("/");
    ASSERT_EQ(page.status, 200);
    EXPECT_EQ(page.headers[boost::beast::http::field::content_type], "text/html; charset=utf-8");
    EXPECT_NE(page.body.find("Keyferry"), std::string::npos);
    EXPECT_FALSE(page.headers["Content-Security-Policy"].empty());
    const auto authority = client->get("/ca.pem");
    ASSERT_EQ(authority.status, 200);
    std::ifstream file(server->authority());
    std::stringstream expected;
    expected << file.rdbuf();
    EXPECT_EQ(authority.body, expected.str());
    EXPECT_EQ(client->get("/missing.js").status, 404);
    EXPECT_EQ(client->post("/").status, 405);
}

TEST_F(ServiceWireTest, WebSocketUpgradeWithABadTokenIs401) {
    WebSocketClient socket(server->port(), server->authority());
    EXPECT_EQ(socket.connect("kfc_wrong"), 401);
    WebSocketClient anonymous(server->port(), server->authority());
    EXPECT_EQ(anonymous.connect(""), 401);
}

TEST_F(ServiceWireTest, TextsArriveInOrderAndAnAckMakesThemTyped) {
    const auto [computer, phone] = pairedComputer();
    const std::string queued = sendText(phone, "before connecting");
    auto socket = connectComputer(computer);
    const auto first = socket->read();
    ASSERT_TRUE(first);
    EXPECT_EQ((*first)["type"], "insert_text");
    EXPECT_EQ((*first)["id"], queued);
    EXPECT_EQ((*first)["text"], "before connecting");
    EXPECT_EQ(textState(phone, queued), "delivered");

    const std::string mixed =
        "Grüße, Привет, مرحبا, 你好, नमस्ते 👋🏽👨‍👩‍👧\nsecond line";
    const std::string second = sendText(phone, mixed);
    const std::string third = sendText(phone, "third");
    const auto next = socket->read();
    const auto last = socket->read();
    ASSERT_TRUE(next && last);
    EXPECT_EQ((*next)["id"], second);
    EXPECT_EQ((*next)["text"], mixed);
    EXPECT_EQ((*last)["id"], third);

    socket->ack(queued);
    EXPECT_TRUE(eventuallyState(phone, queued, "typed"));
    EXPECT_EQ(textState(phone, second), "delivered");
    EXPECT_EQ(client->get("/v1/phones/me", phone.token).json["computerOnline"], true);
}

TEST_F(ServiceWireTest, UnacknowledgedTextsAreSentAgainInOrderAfterADroppedSocket) {
    const auto [computer, phone] = pairedComputer();
    auto socket = connectComputer(computer);
    const std::vector<std::string> ids{sendText(phone, "one"), sendText(phone, "two"), sendText(phone, "three")};
    for (const std::string& id : ids) {
        const auto frame = socket->read();
        ASSERT_TRUE(frame);
        EXPECT_EQ((*frame)["id"], id);
    }
    socket->ack(ids[0]);
    ASSERT_TRUE(eventuallyState(phone, ids[0], "typed"));
    socket->drop();

    auto again = connectComputer(computer);
    const auto two = again->read();
    const auto three = again->read();
    ASSERT_TRUE(two && three);
    EXPECT_EQ((*two)["id"], ids[1]);
    EXPECT_EQ((*two)["text"], "two");
    EXPECT_EQ((*three)["id"], ids[2]);
    EXPECT_FALSE(again->read(300ms));
    again->ack(ids[1]);
    again->ack(ids[2]);
    EXPECT_TRUE(eventuallyState(phone, ids[2], "typed"));
}

TEST_F(ServiceWireTest, AComputerHangingUpDuringALargeBacklogEndsOnlyItsConnection) {
    const auto [computer, phone] = pairedComputer();
    for (int i = 0; i < 40; ++i) {
        sendText(phone, std::string(10'000, static_cast<char>('a' + i % 26)));
    }
    {
        auto socket = connectComputer(computer);
        socket->drop();
    }
    auto again = connectComputer(computer);
    const auto first = again->read();
    ASSERT_TRUE(first);
    EXPECT_EQ((*first)["text"], std::string(10'000, 'a'));
    EXPECT_EQ(client->get("/v1/computers/pair/status", computer.token).status, 200);
}

TEST_F(ServiceWireTest, ARepeatedAcknowledgementChangesNothing) {
    const auto [computer, phone] = pairedComputer();
    auto socket = connectComputer(computer);
    const std::string id = sendText(phone, "once");
    ASSERT_TRUE(socket->read());
    socket->ack(id);
    socket->ack(id);
    socket->send(json{{"type", "something else"}});
    socket->send(json::array());
    ASSERT_TRUE(eventuallyState(phone, id, "typed"));
    const std::string next = sendText(phone, "next");
    const auto frame = socket->read();
    ASSERT_TRUE(frame);
    EXPECT_EQ((*frame)["id"], next);
}

TEST_F(ServiceWireTest, AFrameLongerThanOneReadIsStillUnderstood) {
    const auto [computer, phone] = pairedComputer();
    auto socket = connectComputer(computer);
    const std::string id = sendText(phone, "long ack");
    ASSERT_TRUE(socket->read());
    socket->send(json{{"type", "ack"}, {"id", id}, {"note", std::string(5000, 'x')}});
    EXPECT_TRUE(eventuallyState(phone, id, "typed"));
}

TEST_F(ServiceWireTest, AnOversizedFrameClosesTheSocket) {
    const auto [computer, phone] = pairedComputer();
    auto socket = connectComputer(computer);
    socket->send(json{{"type", "ack"}, {"id", std::string(20 * 1024, 'x')}});
    EXPECT_EQ(socket->waitForClose(), 1009);
}

TEST_F(ServiceWireTest, PhoneChangesAreAnnouncedOnTheSocket) {
    const auto [computer, phone] = pairedComputer();
    auto socket = connectComputer(computer);
    const auto code = client->post("/v1/computers/pair/code", computer.token);
    const Phone second = pairPhone(code.json["pairCode"], "iPad");
    auto frame = socket->read();
    ASSERT_TRUE(frame);
    EXPECT_EQ(*frame, json({{"type", "phones_changed"}}));
    client->post("/v1/phones/unpair", second.token);
    frame = socket->read();
    ASSERT_TRUE(frame);
    EXPECT_EQ((*frame)["type"], "phones_changed");
    client->post("/v1/computers/phones/remove", computer.token, json{{"pairingId", phone.pairingId}});
    frame = socket->read();
    ASSERT_TRUE(frame);
    EXPECT_EQ((*frame)["type"], "phones_changed");
}

TEST_F(ServiceWireTest, ASecondSocketReplacesTheFirst) {
    const auto [computer, phone] = pairedComputer();
    auto first = connectComputer(computer);
    auto second = connectComputer(computer);
    EXPECT_EQ(first->waitForClose(), 4000);
    const std::string id = sendText(phone, "to the new one");
    const auto frame = second->read();
    ASSERT_TRUE(frame);
    EXPECT_EQ((*frame)["id"], id);
}

TEST_F(ServiceWireTest, RemovingTheComputerRevokesItsTokenAndClosesItsSocket) {
    const auto [computer, phone] = pairedComputer();
    auto socket = connectComputer(computer);
    const auto removal = client->post("/v1/phones/computer/remove", phone.token);
    ASSERT_EQ(removal.status, 200);
    EXPECT_EQ(removal.json["removed"], true);
    EXPECT_EQ(socket->waitForClose(), 4001);
    EXPECT_EQ(client->get("/v1/computers/pair/status", computer.token).json["status"], "revoked");
    EXPECT_EQ(client->get("/v1/computers/phones", computer.token).status, 401);
    EXPECT_EQ(client->post("/v1/computers/pair/code", computer.token).status, 401);
    WebSocketClient again(server->port(), server->authority());
    EXPECT_EQ(again.connect(computer.token), 401);
    EXPECT_EQ(client->get("/v1/phones/me", phone.token).status, 401);
}

TEST_F(ServiceWireTest, UndeliveredTextsSurviveARestartOfTheService) {
    const auto [computer, phone] = pairedComputer();
    auto socket = connectComputer(computer);
    const std::string typed = sendText(phone, "typed before");
    ASSERT_TRUE(socket->read());
    socket->ack(typed);
    ASSERT_TRUE(eventuallyState(phone, typed, "typed"));
    const std::string delivered = sendText(phone, "delivered, not typed");
    ASSERT_TRUE(socket->read());
    socket.reset();
    const std::string offline = sendText(phone, "sent while the computer was away");

    restartServer();
    auto after = connectComputer(computer);
    const auto first = after->read();
    const auto second = after->read();
    ASSERT_TRUE(first && second);
    EXPECT_EQ((*first)["id"], delivered);
    EXPECT_EQ((*second)["id"], offline);
    EXPECT_EQ((*second)["text"], "sent while the computer was away");
    EXPECT_FALSE(after->read(300ms));
    EXPECT_EQ(textState(phone, typed), "typed");
}

} // namespace
} // namespace keyferry::service
