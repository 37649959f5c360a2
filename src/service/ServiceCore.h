#pragma once

#include "ApiReply.h"
#include "RateLimiter.h"
#include "ServiceClock.h"
#include "ServiceEvents.h"
#include "ServiceLog.h"
#include "Storage.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace keyferry::service {

// The rules of the Keyferry service: pairing codes, credentials, phones and the delivery of texts. It
// answers each API call with an ApiReply and reports changes through ServiceEvents. It keeps no network
// state; the clock and the storage are injected and must outlive it. Single-threaded: every call comes
// from the service's network thread. Storage failures propagate as std::runtime_error.
class ServiceCore {
public:
    static constexpr std::int64_t codeLifetimeMs = 10 * 60 * 1000;
    // Wrong pairing codes allowed per client (an IPv4 address or an IPv6 /64) in each hour, and from
    // everyone together in each minute; beyond either, pairing answers 429 but live codes stay live.
    static constexpr int wrongCodesPerClient = 10;
    static constexpr std::int64_t wrongCodesPerClientWindowMs = 60 * 60 * 1000;
    static constexpr int wrongCodesOverall = 100;
    static constexpr std::int64_t wrongCodesOverallWindowMs = 60 * 1000;
    static constexpr int pairStartsPerAddress = 20; // per minute
    static constexpr std::size_t maxTextCharacters = 10'000;
    static constexpr std::int64_t maxWaitingTexts = 1'000;
    // A text not typed within a week is deleted; a computer away that long has been given up on.
    static constexpr std::int64_t waitingTextLifetimeMs = 7LL * 24 * 60 * 60 * 1000;
    // Bytes of UTF-8 text that may wait for one computer: about 26 of the longest texts.
    static constexpr std::int64_t waitingTextBudgetBytes = 1024 * 1024;
    static constexpr std::size_t maxNameCharacters = 100;
    static constexpr std::size_t maxShortFieldCharacters = 40;
    static constexpr int phoneTextHistory = 50;

    ServiceCore(ServiceClock& clock, Storage& storage, ServiceEvents events = {});

    // Computer side.
    ApiReply startPairing(std::string_view name, std::string_view platform, const std::string& address);
    ApiReply newPairCode(std::string_view computerToken);
    ApiReply pairStatus(std::string_view computerToken);
    ApiReply computerPhones(std::string_view computerToken);
    ApiReply removePhone(std::string_view computerToken, std::string_view pairingId);
    // The computer's id when the token belongs to a computer that is not revoked.
    std::optional<std::string> authenticateComputer(std::string_view computerToken);

    // Phone side.
    ApiReply pairPhone(std::string_view code, std::string_view name, std::string_view platform,
                       std::string_view appVersion, const std::string& address);
    ApiReply phoneInfo(std::string_view phoneToken);
    ApiReply sendText(std::string_view phoneToken, std::string_view text);
    ApiReply phoneTexts(std::string_view phoneToken);
    ApiReply unpairPhone(std::string_view phoneToken);
    ApiReply removeComputer(std::string_view phoneToken);

    // Delivery, for the computer's connection.
    struct PendingText {
        std::int64_t serial = 0;
        std::string id;
        std::string text;
    };
    // At most `limit` texts not yet typed and not expired, in order, after `afterSerial` (0 for all).
    std::vector<PendingText> textsToDeliver(const std::string& computerId, std::int64_t afterSerial, int limit);
    // Whether the text still waits to be typed: false once acknowledged, expired or dropped with its phone.
    bool isWaiting(const std::string& computerId, std::string_view textId);
    void markDelivered(const std::string& computerId, std::string_view textId);
    // An acknowledgement; unknown or repeated ids are ignored.
    void acknowledge(const std::string& computerId, std::string_view textId);
    // Deletes typed texts after a day and every text after its lifetime; run at start and periodically.
    void expireTexts();

private:
    struct PhoneContext {
        PhoneRecord phone;
        ComputerRecord computer;
    };
    std::optional<ComputerRecord> liveComputer(std::string_view token);
    std::optional<PhoneContext> livePhone(std::string_view token);
    ApiReply issueCode(const ComputerRecord& computer, std::optional<std::string> computerToken);
    std::string unusedCode(std::int64_t now);
    std::optional<ApiReply> guessingRefusal(const std::string& client, std::int64_t now);
    // Logs (at most once a minute per client and reason) that `client` was refused, then gives `reply`.
    ApiReply refused(const std::string& client, const char* reason, ApiReply reply, std::int64_t now);
    bool isOnline(const std::string& computerId) const;
    void notify(const std::function<void(const std::string&)>& event, const std::string& computerId) const;

    ServiceClock& clock_;
    Storage& storage_;
    ServiceEvents events_;
    RateLimiter wrongCodesByClient_;
    RateLimiter wrongCodesOverall_;
    RateLimiter pairStarts_;
    ServiceLog::Throttle logThrottle_;
};

} // namespace keyferry::service
