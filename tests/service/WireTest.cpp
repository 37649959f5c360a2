#include "WireTest.h"

#include "SqliteStorage.h"
#include "Wait.h"

#include <chrono>

namespace keyferry::service {

using nlohmann::json;

void WireTest::startServer() {
    server = std::make_unique<TestServer>(folder.path(), clock);
    client = std::make_unique<HttpsClient>(server->port(), server->authority());
}

void WireTest::stopServer() {
    client.reset();
    server.reset();
}

void WireTest::restartServer() {
    stopServer();
    startServer();
}

WireTest::Computer WireTest::startComputer() {
    const auto answer = client->post("/v1/computers/pair/start", "", json{{"name", "Desk"}, {"platform", "linux"}});
    EXPECT_EQ(answer.status, 200) << answer.body;
    return {answer.json.value("computerId", ""), answer.json.value("computerToken", ""),
            answer.json.value("pairCode", "")};
}

WireTest::Phone WireTest::pairPhone(const std::string& code, const std::string& name) {
    const auto answer = client->post(
        "/v1/phones/pair", "", json{{"code", code}, {"name", name}, {"platform", "android"}, {"appVersion", "1.2"}});
    EXPECT_EQ(answer.status, 200) << answer.body;
    return {answer.json.value("pairingId", ""), answer.json.value("phoneToken", "")};
}

std::pair<WireTest::Computer, WireTest::Phone> WireTest::pairedComputer() {
    Computer computer = startComputer();
    Phone phone = pairPhone(computer.code);
    return {computer, phone};
}

WireTest::Phone WireTest::addPhone(const Computer& computer, const std::string& name) {
    const auto code = client->post("/v1/computers/pair/code", computer.token);
    EXPECT_EQ(code.status, 200) << code.body;
    return pairPhone(code.json.value("pairCode", ""), name);
}

std::string WireTest::sendText(const Phone& phone, const std::string& text) {
    const auto answer = client->post("/v1/phones/texts", phone.token, json{{"text", text}});
    EXPECT_EQ(answer.status, 200) << answer.body;
    return answer.json.value("id", "");
}

std::unique_ptr<WebSocketClient> WireTest::connectComputer(const Computer& computer) {
    auto socket = std::make_unique<WebSocketClient>(server->port(), server->authority());
    EXPECT_EQ(socket->connect(computer.token), 101);
    const auto hello = socket->read();
    EXPECT_TRUE(hello && (*hello)["type"] == "connected") << (hello ? hello->dump() : "nothing");
    return socket;
}

std::vector<std::string> WireTest::readTexts(WebSocketClient& socket, Acknowledge acknowledge) {
    std::vector<std::string> ids;
    while (const auto frame = socket.read(std::chrono::milliseconds(500))) {
        if ((*frame)["type"] == "insert_text") {
            ids.push_back((*frame)["id"]);
            if (acknowledge == Acknowledge::yes) {
                socket.ack(ids.back());
            }
        }
    }
    return ids;
}

std::string WireTest::textState(const Phone& phone, const std::string& id) {
    const auto answer = client->get("/v1/phones/texts", phone.token);
    for (const json& text : answer.json["texts"]) {
        if (text["id"] == id) {
            return text["state"];
        }
    }
    return "missing";
}

std::int64_t WireTest::storedUntypedTexts(const std::string& computerId) const {
    SqliteStorage storage((folder.path() / "keyferry.sqlite3").string());
    return storage.untypedTextCount(computerId);
}

bool WireTest::eventuallyState(const Phone& phone, const std::string& id, const std::string& state) {
    return testing::waitUntil([&] { return textState(phone, id) == state; }, std::chrono::seconds(2));
}

} // namespace keyferry::service
