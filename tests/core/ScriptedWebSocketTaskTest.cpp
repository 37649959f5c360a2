#include "ScriptedWebSocketFactory.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

namespace keyferry::fakes {
namespace {

TEST(ScriptedWebSocketTask, ReceiveWaitsForTheTestsDelivery) {
    ScriptedWebSocketFactory factory;
    auto task = factory.makeTask(WebSocketRequest{"wss://h/v1/computers/connect", {{"Authorization", "Bearer t"}}});
    ASSERT_EQ(factory.taskCount(), 1u);
    EXPECT_EQ(factory.requests()[0].url, "wss://h/v1/computers/connect");

    std::vector<WebSocketReceiveResult> results;
    task->resume();
    task->receive([&](WebSocketReceiveResult r) { results.push_back(r); });
    auto& scripted = factory.lastTask();
    EXPECT_TRUE(scripted.wasResumed());
    EXPECT_TRUE(scripted.hasPendingReceive());

    scripted.deliverBinary("bytes");
    ASSERT_EQ(results.size(), 1u);
    const auto& message = std::get<WebSocketMessage>(results[0]);
    EXPECT_EQ(message.kind, WebSocketMessage::Kind::binary);
    EXPECT_EQ(message.data, "bytes");
    EXPECT_FALSE(scripted.hasPendingReceive());
    EXPECT_THROW(scripted.deliverText("x"), std::logic_error);

    task->receive([&](WebSocketReceiveResult r) { results.push_back(r); });
    scripted.deliverError("gone");
    EXPECT_EQ(std::get<WebSocketError>(results[1]).description, "gone");
}

TEST(ScriptedWebSocketTask, RecordsSendsPingsAndCloseCodes) {
    ScriptedWebSocketTask task(WebSocketRequest{});
    int sendCompletions = 0;
    task.sendText(R"({"type":"ack","id":"A"})", [&](std::optional<WebSocketError> error) {
        EXPECT_FALSE(error);
        ++sendCompletions;
    });
    EXPECT_EQ(sendCompletions, 1);
    EXPECT_EQ(task.sentTexts(), (std::vector<std::string>{R"({"type":"ack","id":"A"})"}));

    task.completeSendsAtOnce = false;
    std::optional<WebSocketError> sendError;
    task.sendText("second", [&](std::optional<WebSocketError> error) { sendError = error; });
    task.completeSend(1, WebSocketError{"broken"});
    ASSERT_TRUE(sendError);
    EXPECT_EQ(sendError->description, "broken");
    EXPECT_THROW(task.completeSend(1), std::logic_error);

    std::vector<bool> pongs;
    task.sendPing([&](std::optional<WebSocketError> error) { pongs.push_back(!error); });
    task.sendPing([&](std::optional<WebSocketError> error) { pongs.push_back(!error); });
    EXPECT_EQ(task.pendingPingCount(), 2u);
    task.answerPing();
    task.answerPing(WebSocketError{"timeout"});
    EXPECT_EQ(pongs, (std::vector<bool>{true, false}));
    EXPECT_EQ(task.pingCount(), 2u);

    task.cancel(1001);
    EXPECT_EQ(task.cancelCloseCodes(), (std::vector<int>{1001}));
}

TEST(ScriptedWebSocketTask, OnSendSeesTheTextBeforeTheSendCompletes) {
    ScriptedWebSocketTask task(WebSocketRequest{});
    std::vector<std::string> seen;
    task.onSend = [&](const std::string& text) { seen.push_back(text + " after " + std::to_string(task.sentCount())); };
    task.sendText("first", [&](std::optional<WebSocketError>) { seen.emplace_back("completed"); });
    EXPECT_EQ(seen, (std::vector<std::string>{"first after 0", "completed"}));
}

TEST(ScriptedWebSocketTask, FailAllPendingFailsOnlyWhatIsPendingNow) {
    ScriptedWebSocketTask task(WebSocketRequest{});
    int errors = 0;
    std::function<void(WebSocketReceiveResult)> again = [&](WebSocketReceiveResult result) {
        errors += std::holds_alternative<WebSocketError>(result) ? 1 : 0;
        task.receive(again);
    };
    task.receive(again);
    task.sendPing([&](std::optional<WebSocketError> error) { errors += error ? 1 : 0; });
    task.failAllPending();
    EXPECT_EQ(errors, 2);
    EXPECT_EQ(task.pendingReceiveCount(), 1u);
    EXPECT_EQ(task.pendingPingCount(), 0u);
}

} // namespace
} // namespace keyferry::fakes
