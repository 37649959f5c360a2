#include "CompanionServiceHarness.h"

#include <gtest/gtest.h>

namespace keyferry::harness {
namespace {

using State = CompanionConnectionState;

class CompanionServiceSocketTest : public ::testing::Test, protected CompanionServiceHarness {};

TEST_F(CompanionServiceSocketTest, OpensOneSocketWithTheBearerToken) {
    plantPairing();
    service->start();
    settle();
    ASSERT_EQ(sockets.taskCount(), 1u);
    const auto& socket = lastSocket();
    EXPECT_EQ(socket.request().url, socketURL);
    EXPECT_EQ(socket.request().headers, (HttpHeaders{{"Authorization", "Bearer token-1"}}));
    EXPECT_DOUBLE_EQ(socket.request().timeout, 60.0);
    EXPECT_EQ(socket.resumeCount(), 1);
    EXPECT_EQ(socket.receiveCallCount(), 1u);
    EXPECT_EQ(queue.activeTimerCount(), 1u);
    EXPECT_EQ(accessibility.promptFlags(), std::vector<bool>{false}); // never prompts from here
}

TEST_F(CompanionServiceSocketTest, SocketAddressReplacesPathAndScheme) {
    CompanionServiceHarness other("https://api.keyferry.example/service/v2/");
    other.plantPairing();
    other.service->start();
    other.settle();
    EXPECT_EQ(other.lastSocket().request().url, "wss://api.keyferry.example/v1/computers/connect");
}

TEST_F(CompanionServiceSocketTest, NoSocketAddressMeansNothingHappens) {
    CompanionServiceHarness other("not a url");
    other.plantPairing();
    other.service->resumeAfterAccessibilityPermission();
    other.settle();
    EXPECT_EQ(other.sockets.taskCount(), 0u);
    EXPECT_TRUE(other.events.empty());
}

TEST_F(CompanionServiceSocketTest, ConnectedOnlyWhenTheServiceConfirms) {
    plantPairing();
    service->start();
    settle();
    EXPECT_EQ(states, std::vector<State>{State::connecting});
    respond(phonesPath, 200, phonesReply({}));
    EXPECT_EQ(states, std::vector<State>{State::connecting});
    lastSocket().deliverText(R"({"type":"connected"})");
    settle();
    EXPECT_EQ(states, (std::vector<State>{State::connecting, State::connected}));
    EXPECT_EQ(requestsTo(phonesPath), 2u); // start, then the confirmation
}

TEST_F(CompanionServiceSocketTest, MissingTokenAtConnectClearsThePairingSilently) {
    plantPairing();
    accessibility.trusted = false;
    service->start();
    settle();
    clearRecords();
    defaults.setStringArray("quillix.processedMessageIds", {"old"});
    accessibility.trusted = true;
    secrets.dropTokenAfterFinds = 3; // still there for the pairing checks, gone when connect() reads it
    service->resumeAfterAccessibilityPermission();
    settle();
    EXPECT_EQ(sockets.taskCount(), 0u);
    EXPECT_EQ(states, std::vector<State>{State::unpaired});
    EXPECT_TRUE(errors.empty());
    EXPECT_FALSE(defaults.contains("quillix.paired"));
    EXPECT_FALSE(defaults.contains("quillix.computerId"));
    EXPECT_FALSE(defaults.contains("quillix.processedMessageIds"));
}

TEST_F(CompanionServiceSocketTest, MissingPermissionDropsTheSocketEveryTime) {
    auto& socket = connected();
    accessibility.trusted = false;
    service->resumeAfterAccessibilityPermission();
    settle();
    service->resumeAfterAccessibilityPermission();
    settle();
    EXPECT_EQ(socket.cancelCloseCodes(), std::vector<int>{1001});
    EXPECT_EQ(states, std::vector<State>{State::permissionRequired});
    EXPECT_EQ(accessibilityNeeded, 2); // also when the state did not change
    EXPECT_EQ(events, (std::vector<std::string>{"state:permissionRequired", "accessibility", "accessibility"}));
    EXPECT_EQ(queue.activeTimerCount(), 0u);
}

TEST_F(CompanionServiceSocketTest, InsertTextIsTypedRecordedAcknowledgedAndTold) {
    auto& socket = connected();
    socket.deliverText(insertText("A", "Hello, world"));
    settle();
    EXPECT_EQ(keyboard.typedText(), "Hello, world");
    EXPECT_EQ(processedIds(), std::vector<std::string>{"A"});
    EXPECT_EQ(ackedIds(socket), std::vector<std::string>{"A"});
    EXPECT_EQ(textsInserted, 1);
    EXPECT_EQ(events, std::vector<std::string>{"inserted"});
}

TEST_F(CompanionServiceSocketTest, TheIdIsRecordedThenAcknowledgedThenTheShellIsTold) {
    auto& socket = connected();
    const auto reportsBefore = mainThread.postedCount();
    const auto step = [&](const std::string& what) {
        return what + " after " + std::to_string(mainThread.postedCount() - reportsBefore) + " reports";
    };
    std::vector<std::string> steps;
    defaults.onArrayWrite = [&](const std::string& key) {
        if (key == "quillix.processedMessageIds") {
            steps.push_back(step("recorded"));
        }
    };
    socket.onSend = [&](const std::string&) { steps.push_back(step("acknowledged")); };
    socket.completeSendsAtOnce = false;
    socket.deliverText(insertText("A", "x"));
    queue.runUntilIdle();
    EXPECT_EQ(steps, (std::vector<std::string>{"recorded after 0 reports", "acknowledged after 0 reports"}));
    EXPECT_EQ(mainThread.postedCount() - reportsBefore, 1u);
    socket.completeSend(0, WebSocketError{"broken pipe"}); // a failed send is neither retried nor reported
    settle();
    EXPECT_EQ(socket.sentCount(), 1u);
    EXPECT_EQ(events, std::vector<std::string>{"inserted"});
}

TEST_F(CompanionServiceSocketTest, ARedeliveryIsOnlyAcknowledged) {
    auto& socket = connected();
    socket.deliverText(insertText("A", "once"));
    settle();
    socket.deliverText(insertText("A", "once"));
    settle();
    EXPECT_EQ(keyboard.typedText(), "once");
    EXPECT_EQ(ackedIds(socket), (std::vector<std::string>{"A", "A"}));
    EXPECT_EQ(textsInserted, 1);
}

TEST_F(CompanionServiceSocketTest, InsertTextWithoutIdIsIgnored) {
    auto& socket = connected();
    socket.deliverText(R"({"type":"insert_text","text":"T"})");
    settle();
    socket.deliverText(R"({"type":"insert_text","id":null,"text":"T"})");
    settle();
    EXPECT_EQ(keyboard.attempts(), 0u);
    EXPECT_EQ(socket.sentCount(), 0u);
    EXPECT_TRUE(events.empty());
    EXPECT_EQ(socket.pendingReceiveCount(), 1u); // the loop goes on
}

TEST_F(CompanionServiceSocketTest, InsertTextWithoutTextTypesTheEmptyString) {
    auto& socket = connected();
    socket.deliverText(R"({"type":"insert_text","id":"B"})");
    settle();
    EXPECT_EQ(keyboard.attempts(), 0u);
    EXPECT_EQ(processedIds(), std::vector<std::string>{"B"});
    EXPECT_EQ(ackedIds(socket), std::vector<std::string>{"B"});
    EXPECT_EQ(textsInserted, 1);
}

TEST_F(CompanionServiceSocketTest, ConnectedWhileConnectedRefreshesWithoutAStateReport) {
    auto& socket = connected();
    const auto refreshes = requestsTo(phonesPath);
    socket.deliverText(R"({"type":"connected"})");
    settle();
    EXPECT_TRUE(states.empty());
    EXPECT_EQ(requestsTo(phonesPath), refreshes + 1);
}

TEST_F(CompanionServiceSocketTest, TypeIsCaseSensitive) {
    plantPairing();
    service->start();
    settle();
    const auto refreshes = requestsTo(phonesPath);
    lastSocket().deliverText(R"({"type":"Connected"})");
    settle();
    EXPECT_EQ(states, std::vector<State>{State::connecting});
    EXPECT_EQ(requestsTo(phonesPath), refreshes);
}

TEST_F(CompanionServiceSocketTest, BinaryPhonesChangedRefreshesTheList) {
    auto& socket = connected();
    socket.deliverBinary(R"({"type":"phones_changed"})");
    settle();
    respond(phonesPath, 200, phonesReply({phone("p1"), phone("p2")}));
    ASSERT_EQ(phoneLists.size(), 1u);
    EXPECT_EQ(phoneLists[0], (std::vector<PairedPhone>{phone("p1"), phone("p2")}));
}

TEST_F(CompanionServiceSocketTest, BackgroundRefreshFailuresAreSilent) {
    auto& socket = connected();
    socket.deliverText(R"({"type":"phones_changed"})");
    settle();
    respond(phonesPath, 500, R"({"error":"boom"})");
    EXPECT_TRUE(events.empty());
}

TEST_F(CompanionServiceSocketTest, FramesThatDoNotFitAreIgnored) {
    auto& socket = connected();
    const auto refreshes = requestsTo(phonesPath);
    for (const char* frame :
         {R"({"id":"A","text":"T"})", "not json", R"({"type":"pong"})", R"({"type":"insert_text","id":7,"text":"T"})",
          R"({"type":"greeting","id":"A"})", R"(["insert_text"])"}) {
        socket.deliverText(frame);
        settle();
    }
    EXPECT_EQ(keyboard.attempts(), 0u);
    EXPECT_EQ(socket.sentCount(), 0u);
    EXPECT_TRUE(events.empty());
    EXPECT_EQ(requestsTo(phonesPath), refreshes);
    EXPECT_EQ(socket.pendingReceiveCount(), 1u);
}

TEST_F(CompanionServiceSocketTest, TheNextFrameIsAskedForOnlyAfterThisOne) {
    auto& socket = connected();
    const auto asked = socket.receiveCallCount();
    socket.deliverText(insertText("A", "x"));
    EXPECT_EQ(socket.receiveCallCount(), asked); // still on its way to the queue
    queue.runUntilIdle();
    EXPECT_EQ(socket.receiveCallCount(), asked + 1);
}

TEST_F(CompanionServiceSocketTest, AFrameForAReplacedSocketIsIgnored) {
    auto& first = connected();
    advance(20.0);
    first.answerPing(WebSocketError{"timed out"}); // the first socket is given up, its receive still pending
    settle();
    respond(statusPath, 200, statusReply("active"));
    advance(1.0);
    ASSERT_EQ(sockets.taskCount(), 2u);
    ASSERT_TRUE(first.hasPendingReceive());
    first.deliverText(insertText("A", "stale"));
    settle();
    EXPECT_EQ(keyboard.attempts(), 0u);
    EXPECT_EQ(first.sentCount(), 0u);
    EXPECT_EQ(first.pendingReceiveCount(), 0u);
}

TEST_F(CompanionServiceSocketTest, AfterStopTheClosedSocketsErrorIsDropped) {
    auto& socket = connected();
    service->stop();
    settle();
    socket.deliverError("cancelled");
    settle();
    EXPECT_EQ(requestsTo(statusPath), 0u);
    EXPECT_TRUE(events.empty());
}

TEST_F(CompanionServiceSocketTest, ASecondStartRefreshesButOpensNoSecondSocket) {
    connected();
    const auto refreshes = requestsTo(phonesPath);
    service->start();
    settle();
    EXPECT_EQ(sockets.taskCount(), 1u);
    EXPECT_EQ(requestsTo(phonesPath), refreshes + 1);
    EXPECT_TRUE(states.empty());
}

TEST_F(CompanionServiceSocketTest, FailedTypingClosesTheSocketWithoutAcknowledging) {
    auto& socket = connected();
    keyboard.failAtPost(2);
    socket.deliverText(insertText("A", std::string(30, 'x'))); // the second chunk fails
    settle();
    EXPECT_EQ(socket.cancelCloseCodes(), std::vector<int>{1001});
    EXPECT_EQ(socket.sentCount(), 0u);
    EXPECT_TRUE(processedIds().empty());
    EXPECT_EQ(states, std::vector<State>{State::permissionRequired});
    EXPECT_EQ(events, (std::vector<std::string>{"state:permissionRequired", "accessibility"}));
    EXPECT_EQ(queue.activeTimerCount(), 0u);
    EXPECT_EQ(socket.pendingReceiveCount(), 0u);
    // The service delivers it again once typing works.
    service->resumeAfterAccessibilityPermission();
    settle();
    ASSERT_EQ(sockets.taskCount(), 2u);
    lastSocket().deliverText(insertText("A", std::string(30, 'x')));
    settle();
    EXPECT_EQ(ackedIds(lastSocket()), std::vector<std::string>{"A"});
    EXPECT_EQ(processedIds(), std::vector<std::string>{"A"});
}

TEST_F(CompanionServiceSocketTest, TypingWithoutPermissionFailsTheSameWay) {
    auto& socket = connected();
    accessibility.trusted = false;
    socket.deliverText(insertText("A", "x"));
    settle();
    EXPECT_EQ(keyboard.attempts(), 0u);
    EXPECT_EQ(socket.cancelCloseCodes(), std::vector<int>{1001});
    EXPECT_EQ(states, std::vector<State>{State::permissionRequired});
    EXPECT_EQ(accessibilityNeeded, 1);
}

} // namespace
} // namespace keyferry::harness
