#include "CompanionServiceHarness.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace keyferry::harness {
namespace {

using State = CompanionConnectionState;

class RequestsHarness : public CompanionServiceHarness {
public:
    const HttpRequest& onlyRequestTo(const std::string& path) {
        const auto indices = http.indicesForPath(path);
        EXPECT_EQ(indices.size(), 1u) << path;
        return http.request(indices.back());
    }

    static nlohmann::json bodyOf(const HttpRequest& request) {
        return nlohmann::json::parse(request.body.value_or("null"));
    }

    void expectTimeLimits(const HttpRequest& request) {
        EXPECT_DOUBLE_EQ(request.timeout, 60.0);
        EXPECT_DOUBLE_EQ(request.idleTimeout, 20.0);
        EXPECT_DOUBLE_EQ(request.resourceTimeout, 30.0);
        EXPECT_TRUE(request.waitsForConnectivity);
    }

    // A paired computer with no background traffic left: start() is done and its phone list answered.
    void pairedAndIdle() {
        plantPairing();
        accessibility.trusted = false; // keeps the socket out of the way
        service->start();
        settle();
        respond(phonesPath, 200, phonesReply({}));
        clearRecords();
    }

    // The removal answered with `status` and `body`: the one error line it gives, or none.
    std::vector<std::string> removalAnswered(int status, const std::string& body) {
        pairedAndIdle();
        service->removePhone("p1");
        settle();
        respond(removePath, status, body);
        return errors;
    }
};

class CompanionServiceRequestsTest : public ::testing::Test, protected RequestsHarness {};

TEST_F(CompanionServiceRequestsTest, FirstPairingCodeRequest) {
    service->requestPairingCode();
    settle();
    const auto& request = onlyRequestTo("v1/computers/pair/start");
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.url, url("v1/computers/pair/start"));
    EXPECT_EQ(request.headers, (HttpHeaders{{"Content-Type", "application/json"}}));
    EXPECT_EQ(bodyOf(request), (nlohmann::json{{"name", computerName}, {"platform", "linux"}}));
    expectTimeLimits(request);
}

TEST_F(CompanionServiceRequestsTest, AComputerWithoutANameIsCalledComputer) {
    CompanionServiceHarness unnamed(baseURL, "");
    unnamed.service->requestPairingCode();
    unnamed.settle();
    EXPECT_EQ(bodyOf(unnamed.http.request(0)), (nlohmann::json{{"name", "computer"}, {"platform", "linux"}}));
}

TEST_F(CompanionServiceRequestsTest, AddPhoneCodeRequest) {
    pairedAndIdle();
    service->requestPairingCode();
    settle();
    const auto& request = onlyRequestTo("v1/computers/pair/code");
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.url, url("v1/computers/pair/code"));
    EXPECT_EQ(request.headers, (HttpHeaders{{"Authorization", "Bearer token-1"}}));
    EXPECT_FALSE(request.body.has_value());
    expectTimeLimits(request);
}

TEST_F(CompanionServiceRequestsTest, PhoneListRequest) {
    pairedAndIdle();
    service->refreshPhones();
    settle();
    const auto& request = http.request(http.indicesForPath(phonesPath).back());
    EXPECT_EQ(request.method, "GET");
    EXPECT_EQ(request.url, url(phonesPath));
    EXPECT_EQ(request.headers, (HttpHeaders{{"Authorization", "Bearer token-1"}}));
    EXPECT_FALSE(request.body.has_value());
    expectTimeLimits(request);
}

TEST_F(CompanionServiceRequestsTest, RemovalRequest) {
    pairedAndIdle();
    service->removePhone("pairing-7");
    settle();
    const auto& request = onlyRequestTo(removePath);
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.url, url(removePath));
    EXPECT_EQ(request.headers,
              (HttpHeaders{{"Authorization", "Bearer token-1"}, {"Content-Type", "application/json"}}));
    EXPECT_EQ(bodyOf(request), (nlohmann::json{{"pairingId", "pairing-7"}}));
    expectTimeLimits(request);
}

TEST_F(CompanionServiceRequestsTest, StatusRequestCarriesTheTokenItWasGiven) {
    service->requestPairingCode();
    settle();
    respond("v1/computers/pair/start", 200, pairingReply("fresh-token", 1'800'000'600'000));
    advance(1.8);
    const auto& request = onlyRequestTo("v1/computers/pair/status");
    EXPECT_EQ(request.method, "GET");
    EXPECT_EQ(request.url, url("v1/computers/pair/status"));
    EXPECT_EQ(request.headers, (HttpHeaders{{"Authorization", "Bearer fresh-token"}}));
    EXPECT_FALSE(request.body.has_value());
    expectTimeLimits(request);
}

TEST_F(CompanionServiceRequestsTest, ABaseWithATrailingSlashStillJoinsWithOneSlash) {
    CompanionServiceHarness other("https://keyferry.example/api/");
    other.service->requestPairingCode();
    other.settle();
    EXPECT_EQ(other.http.request(0).url, "https://keyferry.example/api/v1/computers/pair/start");
}

TEST_F(CompanionServiceRequestsTest, ABaseWithAQueryKeepsItAfterTheJoinedPath) {
    CompanionServiceHarness other("https://keyferry.example/api?tenant=7");
    other.service->requestPairingCode();
    other.settle();
    EXPECT_EQ(other.http.request(0).url, "https://keyferry.example/api/v1/computers/pair/start?tenant=7");
}

TEST_F(CompanionServiceRequestsTest, WithoutACredentialTheHeaderIsExactlyBearerAndASpace) {
    pairedAndIdle();
    secrets.dropTokenAfterFinds = 1; // paired when asked, gone when the request reads the token
    service->refreshPhones();
    settle();
    const auto& request = http.request(http.indicesForPath(phonesPath).back());
    EXPECT_EQ(headerValue(request.headers, "Authorization"), "Bearer ");
    // The service's 401 is what tells about the missing credential.
    respond(phonesPath, 401, "");
    EXPECT_EQ(errors, std::vector<std::string>{"This computer was removed from your paired computers."});
}

TEST_F(CompanionServiceRequestsTest, ABodyThatCannotBeWrittenAsJsonGoesOutWithoutABody) {
    // Our bodies are built from strings; the one way they cannot be written is text that is not UTF-8.
    pairedAndIdle();
    service->removePhone("bad\xff id");
    settle();
    const auto& request = onlyRequestTo(removePath);
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(headerValue(request.headers, "Content-Type"), "application/json");
    EXPECT_FALSE(request.body.has_value());
}

TEST_F(CompanionServiceRequestsTest, StatusesOutside200To299AreHttpErrors) {
    for (const int status : {199, 300, 404, 500}) {
        SCOPED_TRACE(status);
        RequestsHarness fresh;
        EXPECT_EQ(fresh.removalAnswered(status, R"({"removed":true})"),
                  std::vector<std::string>{"Could not remove this phone. The server returned " +
                                           std::to_string(status) + "."});
        EXPECT_EQ(fresh.requestsTo(phonesPath), 1u); // no reload after a failure
    }
}

TEST_F(CompanionServiceRequestsTest, Statuses200And299AreDecoded) {
    for (const int status : {200, 299}) {
        SCOPED_TRACE(status);
        RequestsHarness fresh;
        EXPECT_TRUE(fresh.removalAnswered(status, R"({"removed":true})").empty());
        EXPECT_EQ(fresh.requestsTo(phonesPath), 2u); // the reload
    }
}

TEST_F(CompanionServiceRequestsTest, A204WithoutBodyFailsToDecode) {
    EXPECT_EQ(removalAnswered(204, ""),
              std::vector<std::string>{"Could not remove this phone. Check your internet connection and try again."});
}

TEST_F(CompanionServiceRequestsTest, A500BodyNeverReachesTheUser) {
    pairedAndIdle();
    service->refreshPhones();
    settle();
    respond(phonesPath, 500, R"({"error":"database exploded","detail":"secret internals"})");
    EXPECT_EQ(errors, std::vector<std::string>{"Could not refresh paired phones. The server returned 500."});
}

TEST_F(CompanionServiceRequestsTest, AnErrorBodyThatIsNotUtf8IsStillAnHttpError) {
    EXPECT_EQ(removalAnswered(502, "\xc3\x28 not text"),
              std::vector<std::string>{"Could not remove this phone. The server returned 502."});
}

TEST_F(CompanionServiceRequestsTest, TransportErrorsAndNonHttpRepliesAskToCheckTheConnection) {
    pairedAndIdle();
    service->refreshPhones();
    service->refreshPhones();
    settle();
    http.failTransportTo(phonesPath, "timed out");
    http.failNotHttp(*http.oldestPendingFor(phonesPath));
    settle();
    const std::string line = "Could not refresh paired phones. Check your internet connection and try again.";
    EXPECT_EQ(errors, (std::vector<std::string>{line, line}));
}

TEST_F(CompanionServiceRequestsTest, CompletionsAreHandledOnTheQueue) {
    pairedAndIdle();
    service->refreshPhones();
    settle();
    http.respondTo(phonesPath, 200, phonesReply({phone("p9")}));
    EXPECT_EQ(queue.pendingTaskCount(), 1u); // the reply waits for the service's queue
    EXPECT_TRUE(phoneLists.empty());
    settle();
    EXPECT_EQ(phoneLists, std::vector<std::vector<PairedPhone>>{{phone("p9")}});
}

} // namespace
} // namespace keyferry::harness
