// The real CompanionService over the real Qt adapters, against the TLS test server playing the Keyferry
// service. Secrets, keyboard and typing permission are the recording fakes; everything on the network, the
// queue, the main-thread hand-off, the clock and the defaults file are real.
#include "CompanionService.h"
#include "InMemorySecretBackend.h"
#include "QtHttpClient.h"
#include "QtMainThread.h"
#include "QtSettingsDefaults.h"
#include "QtWebSocketFactory.h"
#include "RecordingKeyboardPoster.h"
#include "SettableAccessibilityProbe.h"
#include "SystemClock.h"
#include "TempFolder.h"
#include "TestMailbox.h"
#include "TlsServerTest.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

namespace keyferry {
namespace {

using namespace std::chrono_literals;
using State = CompanionConnectionState;
using testing::processEventsUntil;
using testing::TestHttpReply;
using testing::TestHttpRequest;
using testing::TestMailbox;
using testing::TestWebSocketPeer;

const QByteArray pairStartPath = "/v1/computers/pair/start";
const QByteArray pairStatusPath = "/v1/computers/pair/status";
const QByteArray phonesPath = "/v1/computers/phones";
const std::string removedText = "This computer was removed from your paired computers.";

QByteArray statusReply(const std::string& status, bool paired) {
    return QByteArray::fromStdString(nlohmann::json{
        {"computerId", "computer-1"},
        {"name", "test desk"},
        {"status", status},
        {"paired", paired},
        {"expiresAt",
         4'000'000'000'000LL}}.dump());
}

QByteArray phonesReply() {
    return QByteArray::fromStdString(nlohmann::json{{"phones",
                                                     {{{"id", "pairing-1"},
                                                       {"name", "Pixel"},
                                                       {"platform", "android"},
                                                       {"appVersion", "1.0"},
                                                       {"createdAt", 1'700'000'000'000LL},
                                                       {"lastSeenAt", 1'700'000'100'000LL}}}}}
                                         .dump());
}

class QtCompanionServiceTest : public testing::TlsServerTest {
protected:
    void SetUp() override {
        TlsServerTest::SetUp();
        server.setHandler([this](const TestHttpRequest& request) { return answer(request); });
        server.onWebSocket = [this](TestWebSocketPeer& peer) {
            peer.sendText(R"({"type":"connected"})");
            peer.onText = [this](const QByteArray& text) { replies.put(text.toStdString()); };
        };
        service = CompanionService::make(ports, server.baseUrl(), "test desk");
        service->onStateChange = [this](State state) { states.put(state); };
        service->onPhonesChanged = [this](const std::vector<PairedPhone>& phones) { phoneCounts.put(phones.size()); };
        service->onTextInserted = [this] { insertedTexts.put(1); };
        service->onError = [this](const std::string& text) { errors.put(text); };
        service->onPairCode = [this](const std::string& code, CompanionService::PairCodeExpiry) { codes.put(code); };
    }

    // Work still queued may hold the service; the ports it uses go away with this fixture, so the service
    // must be gone first.
    void TearDown() override {
        service->stop();
        const std::weak_ptr<CompanionService> weakService = service;
        service.reset();
        EXPECT_TRUE(processEventsUntil([&] { return weakService.expired(); }));
    }

    std::optional<TestHttpReply> answer(const TestHttpRequest& request) {
        if (request.path == pairStartPath) {
            return TestHttpReply::json(200, R"({"computerId":"computer-1","computerToken":"token-1",)"
                                            R"("pairCode":"123456","expiresAt":4000000000000,"status":"pending"})");
        }
        if (request.path == pairStatusPath) {
            const bool active = ++statusRequests >= activeFromStatusRequest;
            return TestHttpReply::json(200, statusReply(active ? "active" : "pending", active));
        }
        if (request.path == phonesPath) {
            return phonesStatus == 200 ? TestHttpReply::json(200, phonesReply())
                                       : TestHttpReply::json(phonesStatus, R"({"error":"unauthorized"})");
        }
        return TestHttpReply::json(404, "{}");
    }

    // A computer paired in an earlier run.
    void pairedBefore() { CompanionStore(defaults, secrets).savePairing("computer-1", "token-1", true); }

    bool reached(State state, std::chrono::milliseconds limit = 10s) {
        return processEventsUntil([&] { return !states.values().empty() && states.values().back() == state; }, limit);
    }

    TestWebSocketPeer& lastPeer() { return server.webSocket(server.webSocketCount() - 1); }

    // The keyboard is typed on from the service's queue: read it there.
    std::string typedText() {
        TestMailbox<std::string> typed;
        queue.post([&] { typed.put(keyboard.typedText()); });
        EXPECT_TRUE(typed.waitFor(1));
        return typed.values().at(0);
    }

    TempFolder folder{"keyferry-qt-service"};
    QtMainThread mainThread;
    SystemClock clock;
    QtHttpClient http{queue, serverTrust()};
    QtWebSocketFactory webSockets{queue, serverTrust(), QtWebSocketLimits{500ms, 1024 * 1024, 1000ms}};
    QtSettingsDefaults defaults{QString::fromStdString((folder / "quillix/companion.ini").string())};
    fakes::InMemorySecretBackend secrets;
    fakes::RecordingKeyboardPoster keyboard;
    fakes::SettableAccessibilityProbe accessibility;
    CompanionServicePorts ports{queue, mainThread, clock, http, webSockets, defaults, secrets, keyboard, accessibility};
    std::shared_ptr<CompanionService> service;

    int statusRequests = 0;
    int activeFromStatusRequest = 2;
    int phonesStatus = 200;
    TestMailbox<State> states;
    TestMailbox<std::size_t> phoneCounts;
    TestMailbox<int> insertedTexts;
    TestMailbox<std::string> errors;
    TestMailbox<std::string> codes;
    TestMailbox<std::string> replies;
};

TEST_F(QtCompanionServiceTest, FirstPairingConnectsThenTypesAndAcknowledgesTexts) {
    service->start();
    service->requestPairingCode();

    ASSERT_TRUE(reached(State::connected, 15s));
    EXPECT_EQ(states.values(),
              (std::vector<State>{State::creatingCode, State::waitingForPhone, State::connecting, State::connected}));
    EXPECT_EQ(codes.values(), std::vector<std::string>{"123456"});
    EXPECT_EQ(server.requestsTo(pairStartPath).at(0).body, R"({"name":"test desk","platform":"linux"})");
    EXPECT_EQ(server.requestsTo(pairStatusPath).at(0).header("Authorization"), "Bearer token-1");
    EXPECT_EQ(lastPeer().handshake().path, "/v1/computers/connect");
    EXPECT_EQ(lastPeer().handshake().header("Authorization"), "Bearer token-1");
    EXPECT_EQ(defaults.boolean("quillix.paired"), true);
    EXPECT_EQ(defaults.string("quillix.computerId"), "computer-1");

    const auto ack = nlohmann::json{{"type", "ack"}, {"id", "A"}};
    lastPeer().sendText(R"({"type":"insert_text","id":"A","text":"Hello, wörld ✓"})");
    ASSERT_TRUE(replies.waitFor(1));
    EXPECT_EQ(nlohmann::json::parse(replies.values()[0]), ack);
    ASSERT_TRUE(insertedTexts.waitFor(1));
    EXPECT_EQ(typedText(), "Hello, wörld ✓");

    lastPeer().sendText(R"({"type":"insert_text","id":"A","text":"Hello, wörld ✓"})"); // delivered again
    ASSERT_TRUE(replies.waitFor(2));
    EXPECT_EQ(nlohmann::json::parse(replies.values()[1]), ack);
    EXPECT_EQ(typedText(), "Hello, wörld ✓");
    EXPECT_EQ(insertedTexts.size(), 1u);
    EXPECT_EQ(defaults.stringArray("quillix.processedMessageIds"), std::vector<std::string>{"A"});
}

TEST_F(QtCompanionServiceTest, PhonesChangedRefreshesTheList) {
    pairedBefore();
    service->start();
    ASSERT_TRUE(reached(State::connected));
    ASSERT_TRUE(phoneCounts.waitFor(2)); // at start and after "connected"
    const auto before = server.requestsTo(phonesPath).size();

    lastPeer().sendText(R"({"type":"phones_changed"})");

    ASSERT_TRUE(phoneCounts.waitFor(3));
    EXPECT_EQ(phoneCounts.values().back(), 1u);
    EXPECT_EQ(server.requestsTo(phonesPath).size(), before + 1);
    EXPECT_EQ(server.requestsTo(phonesPath).back().header("Authorization"), "Bearer token-1");
}

TEST_F(QtCompanionServiceTest, ServerCloseLeadsToAStatusCheckAndAReconnection) {
    pairedBefore();
    service->start();
    ASSERT_TRUE(reached(State::connected));
    const auto closedAt = std::chrono::steady_clock::now();

    lastPeer().sendClose(1012);

    ASSERT_TRUE(processEventsUntil([&] { return server.webSocketCount() == 2; }));
    ASSERT_TRUE(reached(State::connected));
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - closedAt).count();
    std::printf("[ figures ] server closed the socket: connected again after %.3f s (1 s back-off)\n", seconds);
    EXPECT_EQ(states.values(),
              (std::vector<State>{State::connecting, State::connected, State::reconnecting, State::connected}));
    EXPECT_EQ(server.requestsTo(pairStatusPath).size(), 1);
    EXPECT_GE(seconds, 1.0);
}

TEST_F(QtCompanionServiceTest, ARevokedPairingFoundAfterALossUnpairs) {
    pairedBefore();
    service->start();
    ASSERT_TRUE(reached(State::connected));
    ASSERT_TRUE(phoneCounts.waitFor(2)); // a list still on its way would arrive after the empty one
    server.setHandler([this](const TestHttpRequest& request) {
        return request.path == pairStatusPath ? TestHttpReply::json(200, statusReply("revoked", true))
                                              : answer(request);
    });

    lastPeer().drop();

    ASSERT_TRUE(reached(State::unpaired));
    ASSERT_TRUE(errors.waitFor(1));
    EXPECT_EQ(errors.values()[0], removedText);
    EXPECT_EQ(phoneCounts.values().back(), 0u);
    EXPECT_EQ(defaults.boolean("quillix.paired"), std::nullopt);
    EXPECT_EQ(server.webSocketCount(), 1);
}

TEST_F(QtCompanionServiceTest, ACredentialRejectedOnThePhoneListUnpairsAndClosesTheSocket) {
    pairedBefore();
    service->start();
    ASSERT_TRUE(reached(State::connected));
    ASSERT_TRUE(phoneCounts.waitFor(2));
    phonesStatus = 401;

    lastPeer().sendText(R"({"type":"phones_changed"})");

    ASSERT_TRUE(reached(State::unpaired));
    ASSERT_TRUE(errors.waitFor(1));
    EXPECT_EQ(errors.values()[0], removedText);
    EXPECT_EQ(phoneCounts.values().back(), 0u);
    ASSERT_TRUE(processEventsUntil([&] { return lastPeer().closeCodeReceived().has_value(); }));
    EXPECT_EQ(lastPeer().closeCodeReceived(), 1001);
    EXPECT_EQ(QtSettingsDefaults(defaults.filePath()).string("quillix.computerId"), std::nullopt);
}

TEST_F(QtCompanionServiceTest, StopClosesTheSocketAsGoingAway) {
    pairedBefore();
    service->start();
    ASSERT_TRUE(reached(State::connected));

    service->stop();

    ASSERT_TRUE(processEventsUntil([&] { return lastPeer().isDisconnected(); }));
    EXPECT_EQ(lastPeer().closeCodeReceived(), 1001);
    EXPECT_EQ(server.webSocketCount(), 1);
}

// Waits for two beats of the real 20-second heartbeat.
TEST_F(QtCompanionServiceTest, AnsweredPingsKeepTheSocketAndAWithheldPongLeadsToAReconnection) {
    pairedBefore();
    service->start();
    ASSERT_TRUE(reached(State::connected));
    const auto connectedAt = std::chrono::steady_clock::now();
    const auto secondsSinceConnected = [&] {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - connectedAt).count();
    };

    ASSERT_TRUE(processEventsUntil([&] { return server.webSocket(0).pingsReceived() == 1; }, 30s));
    const double firstPing = secondsSinceConnected();
    server.webSocket(0).setAnswersPings(false);
    ASSERT_TRUE(processEventsUntil([&] { return server.webSocketCount() == 2; }, 40s));
    const double newSocket = secondsSinceConnected();

    std::printf("[ figures ] heartbeat: first ping %.3f s after connecting (answered); second ping unanswered, "
                "new socket after %.3f s (0.5 s pong deadline)\n",
                firstPing, newSocket);
    EXPECT_GE(firstPing, 19.9);
    EXPECT_LT(firstPing, 22.0);
    EXPECT_EQ(server.webSocket(0).pingsReceived(), 2);
    EXPECT_GE(newSocket, 40.4);
    ASSERT_TRUE(reached(State::connected));
    EXPECT_EQ(states.values(),
              (std::vector<State>{State::connecting, State::connected, State::reconnecting, State::connected}));
    EXPECT_EQ(server.requestsTo(pairStatusPath).size(), 1);
}

} // namespace
} // namespace keyferry
