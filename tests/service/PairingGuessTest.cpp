// Guessing pairing codes: a guesser gets very few tries per code, and wrong codes from strangers never
// take a live code away from the phone it was meant for.
#include "ClientAddress.h"
#include "ServiceCore.h"
#include "SqliteStorage.h"

#include <gtest/gtest.h>

#include <regex>

namespace keyferry::service {
namespace {

using nlohmann::json;

constexpr std::int64_t minuteMs = 60'000;
constexpr std::int64_t hourMs = 60 * minuteMs;

class PairingGuessTest : public ::testing::Test {
protected:
    std::string newCode() {
        const ApiReply reply = core.startPairing("Desk", "linux", "10.0.0.1");
        EXPECT_EQ(reply.status, 200) << reply.body.dump();
        computerToken = reply.body.value("computerToken", "");
        return reply.body.value("pairCode", "");
    }
    int enter(const std::string& code, const std::string& address) {
        return core.pairPhone(code, "Pixel", "android", "1.0", address).status;
    }
    // A code that is certainly not `code`: same length, digits shifted by one.
    static std::string wrongCodeFor(const std::string& code) {
        std::string wrong;
        for (const char c : code) {
            wrong.push_back(c >= '0' && c <= '9' ? static_cast<char>('0' + (c - '0' + 1) % 10) : c);
        }
        return wrong;
    }
    bool pairingPending() { return core.pairStatus(computerToken).body.value("pairingPending", false); }

    ManualClock clock{1'800'000'000'000};
    SqliteStorage storage{":memory:"};
    ServiceCore core{clock, storage};
    std::string computerToken;
};

TEST_F(PairingGuessTest, CodesAreNineDigitsInThreeGroups) {
    for (int i = 0; i < 20; ++i) {
        const std::string code = newCode();
        EXPECT_TRUE(std::regex_match(code, std::regex("[0-9]{3} [0-9]{3} [0-9]{3}"))) << code;
    }
}

TEST_F(PairingGuessTest, TheCodeMayBeEnteredWithOrWithoutSeparators) {
    std::string code = newCode();
    std::erase(code, ' ');
    EXPECT_EQ(enter(code, "10.0.0.2"), 200);
    code = newCode();
    std::replace(code.begin(), code.end(), ' ', '-');
    EXPECT_EQ(enter(code, "10.0.0.2"), 200);
    EXPECT_EQ(enter("12345678", "10.0.0.3"), 400);
    EXPECT_EQ(enter("1234567890", "10.0.0.3"), 400);
    EXPECT_EQ(enter("12345678a", "10.0.0.3"), 400);
}

TEST_F(PairingGuessTest, WrongCodesFromOneAddressDoNotWithdrawACodeAnotherPhoneThenEnters) {
    const std::string code = newCode();
    for (int i = 0; i < 3 * ServiceCore::wrongCodesPerClient; ++i) {
        enter(wrongCodeFor(code), "10.66.0.1");
    }
    EXPECT_TRUE(pairingPending());
    EXPECT_EQ(enter(code, "10.0.0.2"), 200);
}

TEST_F(PairingGuessTest, WrongCodesFromOneAddressAreLimitedForAnHour) {
    const std::string code = newCode();
    for (int i = 0; i < ServiceCore::wrongCodesPerClient; ++i) {
        ASSERT_EQ(enter(wrongCodeFor(code), "10.7.7.7"), 404);
    }
    const ApiReply limited = core.pairPhone(code, "Pixel", "android", "1.0", "10.7.7.7");
    EXPECT_EQ(limited.status, 429);
    ASSERT_TRUE(limited.retryAfterSeconds);
    EXPECT_GT(*limited.retryAfterSeconds, 50 * 60);
    clock.advanceMs(5 * minuteMs);
    EXPECT_EQ(enter(code, "10.7.7.7"), 429) << "the lock-out outlasts a minute";
    EXPECT_EQ(enter(code, "10.7.7.8"), 200) << "another address is not affected";
    clock.advanceMs(hourMs);
    EXPECT_EQ(enter(newCode(), "10.7.7.7"), 200);
}

TEST_F(PairingGuessTest, AddressesOfOneIpv6NetworkShareOneAllowance) {
    const std::string code = newCode();
    for (int i = 0; i < ServiceCore::wrongCodesPerClient; ++i) {
        ASSERT_EQ(enter(wrongCodeFor(code), "2001:db8:1:2::" + std::to_string(i + 1)), 404);
    }
    EXPECT_EQ(enter(code, "2001:db8:1:2:ffff:1:2:3"), 429);
    EXPECT_EQ(enter(code, "2001:db8:1:3::1"), 200);
}

TEST_F(PairingGuessTest, ManyAddressesTogetherSlowPairingButNeverWithdrawACode) {
    const std::string code = newCode();
    for (int i = 0; i < ServiceCore::wrongCodesOverall; ++i) {
        ASSERT_EQ(enter(wrongCodeFor(code), "10.50." + std::to_string(i / 250) + "." + std::to_string(i % 250 + 1)),
                  404);
    }
    const ApiReply slowed = core.pairPhone(code, "Pixel", "android", "1.0", "10.0.0.2");
    EXPECT_EQ(slowed.status, 429);
    ASSERT_TRUE(slowed.retryAfterSeconds);
    EXPECT_LE(*slowed.retryAfterSeconds, 60);
    EXPECT_TRUE(pairingPending());
    clock.advanceMs(minuteMs);
    EXPECT_EQ(enter(code, "10.0.0.2"), 200);
}

TEST(ClientAddressTest, LimitsCountIpv4ByAddressAndIpv6ByNetwork) {
    EXPECT_EQ(ClientAddress::limitKey("192.0.2.7"), "192.0.2.7");
    EXPECT_EQ(ClientAddress::limitKey("::ffff:192.0.2.7"), "192.0.2.7");
    EXPECT_EQ(ClientAddress::limitKey("2001:db8:1:2:aaaa:bbbb:cccc:dddd"), "2001:db8:1:2::/64");
    EXPECT_EQ(ClientAddress::limitKey("2001:db8:1:2::1"), ClientAddress::limitKey("2001:db8:1:2:ffff::9"));
    EXPECT_NE(ClientAddress::limitKey("2001:db8:1:2::1"), ClientAddress::limitKey("2001:db8:1:3::1"));
    EXPECT_EQ(ClientAddress::limitKey("unknown"), "unknown");
}

} // namespace
} // namespace keyferry::service
