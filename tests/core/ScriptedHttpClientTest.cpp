#include "ScriptedHttpClient.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

namespace keyferry::fakes {
namespace {

HttpRequest requestFor(const std::string& url) {
    HttpRequest request;
    request.url = url;
    return request;
}

TEST(ScriptedHttpClient, RecordsRequestsAndAnswersThemWhenTheTestSays) {
    ScriptedHttpClient http;
    std::vector<HttpOutcome> outcomes;
    http.send(requestFor("https://example.test/v1/computers/phones"), [&](HttpOutcome o) { outcomes.push_back(o); });
    http.send(requestFor("https://example.test/v1/computers/pair/status"),
              [&](HttpOutcome o) { outcomes.push_back(o); });
    EXPECT_TRUE(outcomes.empty());
    EXPECT_EQ(http.pending(), (std::vector<std::size_t>{0, 1}));

    http.respondTo("v1/computers/pair/status", 200, R"({"ok":true})", {{"Content-Type", "application/json"}});
    ASSERT_EQ(outcomes.size(), 1u);
    const auto& response = std::get<HttpResponse>(outcomes[0]);
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, R"({"ok":true})");
    EXPECT_EQ(http.pending(), (std::vector<std::size_t>{0}));

    http.failTransportOldest("offline");
    ASSERT_EQ(outcomes.size(), 2u);
    EXPECT_EQ(std::get<TransportError>(outcomes[1]).description, "offline");
    EXPECT_EQ(http.requestCount(), 2u);
    EXPECT_EQ(http.pendingCount(), 0u);
}

TEST(ScriptedHttpClient, AnsweringTwiceIsAMistakeOfTheTest) {
    ScriptedHttpClient http;
    http.send(requestFor("https://example.test/a"), [](HttpOutcome) {});
    http.failNotHttp(0);
    EXPECT_THROW(http.respond(0, 200, ""), std::logic_error);
    EXPECT_THROW(http.respondOldest(200, ""), std::logic_error);
}

TEST(ScriptedHttpClient, CompletionMaySendAnotherRequest) {
    ScriptedHttpClient http;
    http.send(requestFor("https://example.test/first"),
              [&](HttpOutcome) { http.send(requestFor("https://example.test/second"), [](HttpOutcome) {}); });
    http.respondOldest(200, "");
    EXPECT_EQ(http.pending(), (std::vector<std::size_t>{1}));
}

TEST(ScriptedHttpClient, PathMatchingIsByWholeTrailingComponents) {
    EXPECT_TRUE(ScriptedHttpClient::urlHasPath("https://h:8443/v1/computers/phones", "v1/computers/phones"));
    EXPECT_TRUE(ScriptedHttpClient::urlHasPath("https://h/base/v1/computers/phones?x=1", "/v1/computers/phones"));
    EXPECT_FALSE(ScriptedHttpClient::urlHasPath("https://h/v1/computers/phones/remove", "v1/computers/phones"));
    EXPECT_FALSE(ScriptedHttpClient::urlHasPath("https://h/xv1/computers/phones", "v1/computers/phones"));
}

} // namespace
} // namespace keyferry::fakes
