// Waiting texts cannot fill the disk: they expire after a lifetime, and each computer has a budget of
// bytes of waiting text; a phone over it is told so.
#include "ServiceCore.h"
#include "WireTest.h"

#include <gtest/gtest.h>

namespace keyferry::service {
namespace {

using nlohmann::json;
using namespace std::chrono_literals;

// 10,000 characters of four bytes each: the largest text the service takes.
std::string largestText() {
    std::string text;
    for (std::size_t i = 0; i < ServiceCore::maxTextCharacters; ++i) {
        text += "\xF0\x9F\x91\x8B"; // U+1F44B
    }
    return text;
}

class TextLimitsTest : public WireTest {};

TEST_F(TextLimitsTest, AWaitingTextIsNotDeliveredAfterItsLifetime) {
    const auto [computer, phone] = pairedComputer();
    sendText(phone, "stale");
    clock.advanceMs(ServiceCore::waitingTextLifetimeMs - 1);
    const std::string fresh = sendText(phone, "fresh");
    clock.advanceMs(1);

    auto socket = connectComputer(computer);
    const auto frame = socket->read();
    ASSERT_TRUE(frame);
    EXPECT_EQ((*frame)["id"], fresh);
    EXPECT_FALSE(socket->read(300ms));
}

TEST_F(TextLimitsTest, ExpiredTextsAreDeletedWhenTheServiceStarts) {
    const auto [computer, phone] = pairedComputer();
    sendText(phone, "left behind");
    stopServer();
    clock.advanceMs(ServiceCore::waitingTextLifetimeMs);
    startServer();
    stopServer();
    EXPECT_EQ(storedUntypedTexts(computer.id), 0);
}

TEST_F(TextLimitsTest, AComputersWaitingTextsHaveAByteBudget) {
    const auto [computer, phone] = pairedComputer();
    const std::string text = largestText();
    const std::size_t fitting = ServiceCore::waitingTextBudgetBytes / text.size();
    std::vector<std::string> ids;
    for (std::size_t i = 0; i < fitting; ++i) {
        ids.push_back(sendText(phone, text));
    }
    const auto refused = client->post("/v1/phones/texts", phone.token, json{{"text", text}});
    EXPECT_EQ(refused.status, 429);
    EXPECT_EQ(refused.json["error"], "Too much text is waiting for the computer. Try again once it has typed some.");
    EXPECT_FALSE(refused.headers[boost::beast::http::field::retry_after].empty());

    auto socket = connectComputer(computer);
    socket->ack(ids.front());
    ASSERT_TRUE(eventuallyState(phone, ids.front(), "typed"));
    EXPECT_EQ(client->post("/v1/phones/texts", phone.token, json{{"text", text}}).status, 200);
}

} // namespace
} // namespace keyferry::service
