#include "QtHttpClient.h"
#include "TestMailbox.h"
#include "TlsServerTest.h"

#include <gtest/gtest.h>

#include <QTcpServer>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>

namespace keyferry {
namespace {

using testing::TestCertificates;
using testing::TestHttpReply;
using testing::TestHttpRequest;
using testing::TestMailbox;
using testing::TlsTestServer;
using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

class QtHttpClientTest : public testing::TlsServerTest {
protected:
    HttpRequest request(const std::string& path) const {
        HttpRequest request;
        request.url = server.baseUrl() + "/" + path;
        return request;
    }

    // Sends and runs the event loop (where the server lives) until the completion has run.
    HttpOutcome exchange(HttpClient& httpClient, HttpRequest httpRequest) {
        TestMailbox<HttpOutcome> outcomes;
        httpClient.send(std::move(httpRequest), [&](HttpOutcome outcome) {
            completedOnQueue = queue.isCurrent();
            outcomes.put(std::move(outcome));
        });
        EXPECT_TRUE(outcomes.waitFor(1, std::chrono::seconds(40)));
        return outcomes.size() == 1 ? outcomes.values()[0] : HttpOutcome(TransportError{"no completion"});
    }

    struct Timed {
        HttpOutcome outcome;
        double seconds;
    };

    Timed timedExchange(HttpClient& httpClient, HttpRequest httpRequest) {
        const auto started = Clock::now();
        auto outcome = exchange(httpClient, std::move(httpRequest));
        return {std::move(outcome), Seconds(Clock::now() - started).count()};
    }

    QtHttpClient client{queue, serverTrust()};
    bool completedOnQueue = false;
};

TEST_F(QtHttpClientTest, PostsHeadersAndBodyAndReturnsTheResponse) {
    server.setHandler([](const TestHttpRequest&) {
        TestHttpReply reply = TestHttpReply::json(200, R"({"code":"123456"})");
        reply.headers.append(qMakePair(QByteArray("X-Scripted"), QByteArray("yes")));
        return reply;
    });
    auto post = request("v1/computers/pair/start");
    post.method = "POST";
    post.headers = {{"Content-Type", "application/json"}, {"Authorization", "Bearer token-1"}};
    post.body = R"({"name":"desk","platform":"linux"})";

    const auto outcome = exchange(client, post);

    ASSERT_TRUE(std::holds_alternative<HttpResponse>(outcome));
    const auto& response = std::get<HttpResponse>(outcome);
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, R"({"code":"123456"})");
    EXPECT_EQ(headerValue(response.headers, "x-scripted"), "yes");
    EXPECT_EQ(headerValue(response.headers, "Content-Type"), "application/json");
    EXPECT_TRUE(completedOnQueue);
    ASSERT_EQ(server.requests().size(), 1);
    const auto received = server.requests()[0];
    EXPECT_EQ(received.method, "POST");
    EXPECT_EQ(received.path, "/v1/computers/pair/start");
    EXPECT_EQ(received.header("Authorization"), "Bearer token-1");
    EXPECT_EQ(received.header("Content-Type"), "application/json");
    EXPECT_EQ(received.body, R"({"name":"desk","platform":"linux"})");
}

TEST_F(QtHttpClientTest, GetSendsNoBody) {
    server.setHandler([](const TestHttpRequest&) { return TestHttpReply::json(200, R"({"phones":[]})"); });
    auto get = request("v1/computers/phones");
    get.headers = {{"Authorization", "Bearer "}};

    const auto outcome = exchange(client, get);

    ASSERT_TRUE(std::holds_alternative<HttpResponse>(outcome));
    ASSERT_EQ(server.requests().size(), 1);
    EXPECT_EQ(server.requests()[0].method, "GET");
    EXPECT_EQ(server.requests()[0].header("Authorization"), "Bearer");
    EXPECT_TRUE(server.requests()[0].body.isEmpty());
}

TEST_F(QtHttpClientTest, PostWithoutBodySaysItsBodyIsEmpty) {
    server.setHandler([](const TestHttpRequest&) { return TestHttpReply::json(200, "{}"); });
    auto post = request("v1/computers/pair/code");
    post.method = "POST";
    post.headers = {{"Authorization", "Bearer token-1"}};

    const auto outcome = exchange(client, post);

    ASSERT_TRUE(std::holds_alternative<HttpResponse>(outcome));
    ASSERT_EQ(server.requests().size(), 1);
    EXPECT_EQ(server.requests()[0].method, "POST");
    EXPECT_EQ(server.requests()[0].header("Content-Length"), "0"); // servers may refuse a POST without a length
    EXPECT_TRUE(server.requests()[0].header("Content-Type").isNull());
}

TEST_F(QtHttpClientTest, ErrorStatusesAreResponsesWithTheirBodies) {
    for (const int status : {401, 404, 500, 503}) {
        server.setHandler([status](const TestHttpRequest&) {
            return TestHttpReply::json(status, R"({"error":")" + QByteArray::number(status) + R"("})");
        });
        const auto outcome = exchange(client, request("v1/computers/phones/remove"));
        ASSERT_TRUE(std::holds_alternative<HttpResponse>(outcome)) << status;
        EXPECT_EQ(std::get<HttpResponse>(outcome).status, status);
        EXPECT_EQ(std::get<HttpResponse>(outcome).body, R"({"error":")" + std::to_string(status) + R"("})");
    }
}

TEST_F(QtHttpClientTest, NoContentIsAResponseWithAnEmptyBody) {
    server.setHandler([](const TestHttpRequest&) { return TestHttpReply{204, {}, {}, {}}; });
    const auto outcome = exchange(client, request("v1/computers/pair/status"));
    ASSERT_TRUE(std::holds_alternative<HttpResponse>(outcome));
    EXPECT_EQ(std::get<HttpResponse>(outcome).status, 204);
    EXPECT_EQ(std::get<HttpResponse>(outcome).body, "");
}

TEST_F(QtHttpClientTest, AServerThatNeverAnswersTimesOutAfterTheRequestTimeout) {
    server.setHandler([](const TestHttpRequest&) { return std::nullopt; });
    auto silent = request("v1/computers/pair/status");
    silent.timeout = 0.5;

    const auto [outcome, elapsed] = timedExchange(client, silent);

    std::printf("[ figures ] silent server, 0.5 s request time-out: transport error after %.3f s\n", elapsed);
    EXPECT_TRUE(std::holds_alternative<TransportError>(outcome));
    EXPECT_GE(elapsed, 0.5 * 0.95); // Qt's transfer timer is a coarse timer, allowed to fire 5 % early
    EXPECT_LT(elapsed, 3.0);
}

TEST_F(QtHttpClientTest, TheWholeExchangeIsAbandonedAtTheResourceTimeoutEvenWhileDataFlows) {
    server.setHandler([](const TestHttpRequest&) {
        TestHttpReply slow = TestHttpReply::json(200, QByteArray(200, 'x'));
        slow.trickleInterval = std::chrono::milliseconds(50); // ten seconds for the whole body
        return slow;
    });
    auto slowRequest = request("v1/computers/phones");
    slowRequest.resourceTimeout = 0.8;

    const auto [outcome, elapsed] = timedExchange(client, slowRequest);

    std::printf("[ figures ] trickling body, 0.8 s resource time-out: transport error after %.3f s\n", elapsed);
    EXPECT_TRUE(std::holds_alternative<TransportError>(outcome));
    EXPECT_GE(elapsed, 0.8);
    EXPECT_LT(elapsed, 3.0);
}

quint16 refusingPort() {
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    const quint16 port = probe.serverPort();
    probe.close(); // nothing listens there now: connections are refused
    return port;
}

TEST_F(QtHttpClientTest, WaitsForTheNetworkUntilTheServerCanBeReached) {
    const quint16 port = refusingPort();
    TlsTestServer late(*certificates);
    late.setHandler([](const TestHttpRequest&) { return TestHttpReply::json(200, "{}"); });
    QTimer::singleShot(std::chrono::milliseconds(1200), &late, [&] { ASSERT_TRUE(late.listen(port)); });
    HttpRequest waiting;
    waiting.url = "https://127.0.0.1:" + std::to_string(port) + "/v1/computers/pair/status";
    waiting.resourceTimeout = 10;

    const auto [outcome, elapsed] = timedExchange(client, waiting);

    std::printf("[ figures ] server listening after 1.2 s: response after %.3f s\n", elapsed);
    ASSERT_TRUE(std::holds_alternative<HttpResponse>(outcome)) << std::get<TransportError>(outcome).description;
    EXPECT_EQ(std::get<HttpResponse>(outcome).status, 200);
    EXPECT_GE(elapsed, 1.2);
    EXPECT_EQ(late.requests().size(), 1);
}

TEST_F(QtHttpClientTest, GivesUpWaitingForTheNetworkAtTheResourceTimeout) {
    HttpRequest waiting;
    waiting.url = "https://127.0.0.1:" + std::to_string(refusingPort()) + "/v1/computers/phones";
    waiting.resourceTimeout = 1.0;

    const auto [outcome, elapsed] = timedExchange(client, waiting);

    ASSERT_TRUE(std::holds_alternative<TransportError>(outcome));
    EXPECT_GE(elapsed, 1.0);
    EXPECT_LT(elapsed, 4.0);
}

TEST_F(QtHttpClientTest, FailsAtOnceWhenNotAskedToWaitForTheNetwork) {
    HttpRequest impatient;
    impatient.url = "https://127.0.0.1:" + std::to_string(refusingPort()) + "/v1/computers/phones";
    impatient.waitsForConnectivity = false;

    const auto [outcome, elapsed] = timedExchange(client, impatient);

    EXPECT_TRUE(std::holds_alternative<TransportError>(outcome));
    EXPECT_LT(elapsed, 5.0); // waiting would last the 30-second resource time-out
}

TEST_F(QtHttpClientTest, RefusesAServerWhoseAuthorityIsNotTrusted) {
    TlsTestServer stranger(*otherCertificates);
    ASSERT_TRUE(stranger.listen());
    stranger.setHandler([](const TestHttpRequest&) { return TestHttpReply::json(200, "{}"); });
    QtHttpClient systemOnly(queue, QtTrust::systemStore());
    HttpRequest toStranger;
    toStranger.url = stranger.baseUrl() + "/v1/computers/phones";
    HttpRequest toKnown = toStranger;
    toKnown.url = server.baseUrl() + "/v1/computers/phones";

    const auto strangerOutcome = exchange(client, toStranger);
    const auto systemOnlyOutcome = exchange(systemOnly, toKnown);

    ASSERT_TRUE(std::holds_alternative<TransportError>(strangerOutcome));
    EXPECT_TRUE(std::holds_alternative<TransportError>(systemOnlyOutcome));
    EXPECT_TRUE(stranger.requests().isEmpty());
    EXPECT_TRUE(server.requests().isEmpty());
}

TEST_F(QtHttpClientTest, AnExchangeWithoutHttpStatusIsNotAnHttpResponse) {
    HttpRequest dataUrl;
    dataUrl.url = "data:text/plain,hello";
    const auto outcome = exchange(client, dataUrl);
    EXPECT_TRUE(std::holds_alternative<NotHttpResponse>(outcome))
        << (std::holds_alternative<TransportError>(outcome) ? std::get<TransportError>(outcome).description : "");
}

TEST(QtHttpClientTeardownTest, AClientMayOutliveItsStoppedQueue) {
    auto queue = std::make_unique<QtSerialQueue>("test.network");
    auto client = std::make_unique<QtHttpClient>(*queue, QtTrust::systemStore());
    TestMailbox<int> events;
    HttpRequest unreachable;
    unreachable.url = "https://127.0.0.1:" + std::to_string(refusingPort()) + "/v1/computers/phones";
    client->send(unreachable, [&](const HttpOutcome&) { events.put(1); }); // waits for the network
    queue->post([&] { events.put(0); });
    ASSERT_TRUE(events.waitFor(1));

    queue->stop();
    client->send(unreachable, [&](const HttpOutcome&) { events.put(2); });
    client.reset();
    queue.reset();

    EXPECT_EQ(events.values(), std::vector<int>{0});
}

TEST_F(QtHttpClientTest, LoopbackLatency) {
    server.setHandler([](const TestHttpRequest&) { return TestHttpReply::json(200, R"({"phones":[]})"); });
    std::vector<double> latencies;
    for (int i = 0; i < 50; ++i) {
        const auto started = Clock::now();
        const auto outcome = exchange(client, request("v1/computers/phones"));
        latencies.push_back(std::chrono::duration<double, std::milli>(Clock::now() - started).count());
        ASSERT_TRUE(std::holds_alternative<HttpResponse>(outcome));
    }
    const double first = latencies.front();
    std::sort(latencies.begin() + 1, latencies.end());
    std::printf("[ figures ] HTTPS GET on loopback: first (with TLS handshake) %.2f ms; next 49: median %.2f ms, "
                "worst %.2f ms\n",
                first, latencies[25], latencies.back());
    EXPECT_EQ(server.requests().size(), 50);
}

} // namespace
} // namespace keyferry
