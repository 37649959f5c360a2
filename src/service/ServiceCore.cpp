#include "ServiceCore.h"

#include "ApiRecords.h"
#include "ClientAddress.h"
#include "NameCharacters.h"
#include "Secrets.h"
#include "Utf8.h"

#include <algorithm>

namespace keyferry::service {
namespace {

using nlohmann::json;

constexpr std::int64_t minuteMs = 60 * 1000;
constexpr std::int64_t dayMs = 24 * 60 * minuteMs;
constexpr std::int64_t lastSeenResolutionMs = minuteMs;

const ApiReply unauthorized = ApiReply::error(401, "The credential is not valid.");

bool isLive(const PairCodeRecord& code, std::int64_t now) {
    return !code.usedAt && !code.withdrawn && code.expiresAt > now;
}

std::string statusText(const ComputerRecord& computer, const std::optional<PairCodeRecord>& latest, std::int64_t now) {
    switch (computer.status) {
    case ComputerStatus::revoked:
        return std::string(PairingStatus::revoked);
    case ComputerStatus::active:
        return std::string(PairingStatus::active);
    case ComputerStatus::pending:
        break;
    }
    return std::string(latest && isLive(*latest, now) ? PairingStatus::pending : PairingStatus::expired);
}

// Whether a field is well-formed UTF-8 without control characters, with a length in [minimum, maximum].
bool isValidField(std::string_view value, std::size_t minimum, std::size_t maximum) {
    const auto length = utf8CodePointCount(value);
    return length && *length >= minimum && *length <= maximum && !NameCharacters::hasControlCharacter(value);
}

constexpr std::size_t codeDigitCount = 9;

// The digits of a code as a phone sends it (spaces and hyphens between groups allowed), or nothing when
// it is not nine digits.
std::optional<std::string> codeDigits(std::string_view code) {
    std::string digits;
    for (const char c : code) {
        if (c >= '0' && c <= '9') {
            digits.push_back(c);
        } else if (c != ' ' && c != '-') {
            return std::nullopt;
        }
    }
    return digits.size() == codeDigitCount ? std::optional(digits) : std::nullopt;
}

// A code as the computer shows it: three groups of three digits, easier to read out and to type.
std::string shownCode(const std::string& digits) {
    return digits.substr(0, 3) + ' ' + digits.substr(3, 3) + ' ' + digits.substr(6);
}

const char* textState(const TextRecord& text) {
    if (text.typedAt) {
        return "typed";
    }
    return text.deliveredAt ? "delivered" : "queued";
}

json textJson(const TextRecord& text) {
    json entry{{"id", text.id}, {"state", textState(text)}, {"createdAt", text.createdAt}};
    if (text.deliveredAt) {
        entry["deliveredAt"] = *text.deliveredAt;
    }
    if (text.typedAt) {
        entry["typedAt"] = *text.typedAt;
    }
    return entry;
}

PairedPhone pairedPhone(const PhoneRecord& phone) {
    return {phone.id, phone.name, phone.platform, phone.appVersion, phone.createdAt, phone.lastSeenAt};
}

ApiReply tooMany(const std::string& message, std::int64_t retryAfterMs) {
    ApiReply reply = ApiReply::error(429, message);
    reply.retryAfterSeconds = (retryAfterMs + 999) / 1000;
    return reply;
}

} // namespace

ServiceCore::ServiceCore(ServiceClock& clock, Storage& storage, ServiceEvents events)
    : clock_(clock), storage_(storage), events_(std::move(events)),
      wrongCodesByClient_(wrongCodesPerClient, wrongCodesPerClientWindowMs),
      wrongCodesOverall_(wrongCodesOverall, wrongCodesOverallWindowMs), pairStarts_(pairStartsPerAddress, minuteMs) {}

ApiReply ServiceCore::startPairing(std::string_view name, std::string_view platform, const std::string& address) {
    const std::int64_t now = clock_.nowMs();
    if (!isValidField(name, 1, maxNameCharacters) || !isValidField(platform, 1, maxShortFieldCharacters)) {
        return ApiReply::error(400, "A computer needs a name (up to 100 characters) and a platform.");
    }
    const std::string client = ClientAddress::limitKey(address);
    if (!pairStarts_.allows(client, now)) {
        return refused(client, "too many new computers",
                       tooMany("Too many pairing requests from this address. Try again in a minute.",
                               pairStarts_.retryAfterMs(client, now)),
                       now);
    }
    pairStarts_.record(client, now);
    storage_.deleteAbandonedComputers(now - dayMs);

    const ComputerRecord computer{Secrets::newId(), std::string(name), std::string(platform), ComputerStatus::pending,
                                  now};
    const std::string token = Secrets::newToken("kfc_");
    ApiReply reply;
    storage_.transaction([&] {
        storage_.insertComputer(computer, Secrets::tokenHash(token));
        reply = issueCode(computer, token);
    });
    return reply;
}

ApiReply ServiceCore::newPairCode(std::string_view computerToken) {
    const auto computer = liveComputer(computerToken);
    if (!computer) {
        return unauthorized;
    }
    ApiReply reply;
    storage_.transaction([&] { reply = issueCode(*computer, std::nullopt); });
    return reply;
}

ApiReply ServiceCore::issueCode(const ComputerRecord& computer, std::optional<std::string> computerToken) {
    const std::int64_t now = clock_.nowMs();
    if (auto previous = storage_.latestPairCode(computer.id); previous && isLive(*previous, now)) {
        previous->withdrawn = true;
        storage_.updatePairCode(*previous);
    }
    PairCodeRecord code{0, unusedCode(now), computer.id, now, now + codeLifetimeMs, std::nullopt, false};
    code.serial = storage_.insertPairCode(code);

    return ApiReply::ok(PairingResponse{.computerId = computer.id,
                                        .computerToken = std::move(computerToken),
                                        .pairCode = shownCode(code.code),
                                        .expiresAt = code.expiresAt,
                                        .status = statusText(computer, code, now),
                                        .platform = computer.platform}
                            .toJson());
}

std::string ServiceCore::unusedCode(std::int64_t now) {
    const auto live = storage_.livePairCodes(now);
    for (;;) {
        std::string candidate = Secrets::newPairCode();
        if (std::none_of(live.begin(), live.end(),
                         [&](const PairCodeRecord& code) { return code.code == candidate; })) {
            return candidate;
        }
    }
}

ApiReply ServiceCore::pairStatus(std::string_view computerToken) {
    const auto computer = storage_.computerByTokenHash(Secrets::tokenHash(computerToken));
    if (!computer) {
        return unauthorized;
    }
    const std::int64_t now = clock_.nowMs();
    const auto latest = storage_.latestPairCode(computer->id);
    const bool pending = latest && isLive(*latest, now);
    const bool expired = computer->status == ComputerStatus::revoked || (latest && !latest->usedAt && !pending);
    return ApiReply::ok(PairStatusResponse{
        .computerId = computer->id,
        .name = computer->name,
        .status = statusText(*computer, latest, now),
        .paired = computer->status == ComputerStatus::active,
        .expiresAt = latest ? latest->expiresAt : 0,
        .pairedDeviceCount = static_cast<std::int64_t>(storage_.phones(computer->id).size()),
        .pairingPending = pending,
        .pairingExpired = expired,
    }
                            .toJson());
}

ApiReply ServiceCore::computerPhones(std::string_view computerToken) {
    const auto computer = liveComputer(computerToken);
    if (!computer) {
        return unauthorized;
    }
    PairedPhonesResponse list;
    for (const PhoneRecord& phone : storage_.phones(computer->id)) {
        list.phones.push_back(pairedPhone(phone));
    }
    return ApiReply::ok(list.toJson());
}

ApiReply ServiceCore::removePhone(std::string_view computerToken, std::string_view pairingId) {
    const auto computer = liveComputer(computerToken);
    if (!computer) {
        return unauthorized;
    }
    if (pairingId.empty()) {
        return ApiReply::error(400, "A pairingId is required.");
    }
    const bool removed = storage_.deletePhone(computer->id, pairingId);
    if (removed) {
        notify(events_.phonesChanged, computer->id);
    }
    return ApiReply::ok(RemovePhoneResponse{removed}.toJson());
}

std::optional<std::string> ServiceCore::authenticateComputer(std::string_view computerToken) {
    const auto computer = liveComputer(computerToken);
    return computer ? std::optional<std::string>(computer->id) : std::nullopt;
}

ApiReply ServiceCore::pairPhone(std::string_view code, std::string_view name, std::string_view platform,
                                std::string_view appVersion, const std::string& address) {
    const std::int64_t now = clock_.nowMs();
    const std::string client = ClientAddress::limitKey(address);
    if (auto refusal = guessingRefusal(client, now)) {
        return *refusal;
    }
    const auto digits = codeDigits(code);
    if (!digits) {
        return ApiReply::error(400, "The pairing code is nine digits.");
    }
    if (!isValidField(name, 1, maxNameCharacters) || !isValidField(platform, 1, maxShortFieldCharacters) ||
        !isValidField(appVersion, 0, maxShortFieldCharacters)) {
        return ApiReply::error(400, "A phone needs a name (up to 100 characters), a platform and an app version.");
    }
    const auto live = storage_.livePairCodes(now);
    const auto match =
        std::find_if(live.begin(), live.end(), [&](const PairCodeRecord& c) { return c.code == *digits; });
    const auto computer = match == live.end() ? std::nullopt : storage_.computer(match->computerId);
    if (!computer || computer->status == ComputerStatus::revoked) {
        // Counted against the guesser and the service as a whole, never against live codes: a stranger's
        // wrong code must not take a code away from the phone it was shown for.
        wrongCodesByClient_.record(client, now);
        wrongCodesOverall_.record({}, now);
        return ApiReply::error(404, "This pairing code is wrong or has expired.");
    }

    PairCodeRecord used = *match;
    used.usedAt = now;
    const PhoneRecord phone{
        Secrets::newId(), computer->id, std::string(name), std::string(platform), std::string(appVersion), now, now};
    const std::string token = Secrets::newToken("kfp_");
    storage_.transaction([&] {
        storage_.updatePairCode(used);
        storage_.insertPhone(phone, Secrets::tokenHash(token));
        storage_.setComputerStatus(computer->id, ComputerStatus::active);
    });
    notify(events_.phonesChanged, computer->id);
    return ApiReply::ok({{"pairingId", phone.id},
                         {"phoneToken", token},
                         {"computerId", computer->id},
                         {"computerName", computer->name}});
}

// Why `client` may not try a code now, if it may not. Every attempt is refused while the client or the
// service as a whole is over its allowance of wrong codes, the right code included: otherwise the limits
// would not bound guessing.
std::optional<ApiReply> ServiceCore::guessingRefusal(const std::string& client, std::int64_t now) {
    if (!wrongCodesByClient_.allows(client, now)) {
        return refused(client, "too many wrong pairing codes from this client",
                       tooMany("Too many wrong pairing codes from this network. Try again later.",
                               wrongCodesByClient_.retryAfterMs(client, now)),
                       now);
    }
    if (!wrongCodesOverall_.allows({}, now)) {
        return refused("everyone", "too many wrong pairing codes on the whole service",
                       tooMany("Too many wrong pairing codes were entered on this service. Try again in a minute.",
                               wrongCodesOverall_.retryAfterMs({}, now)),
                       now);
    }
    return std::nullopt;
}

ApiReply ServiceCore::refused(const std::string& client, const char* reason, ApiReply reply, std::int64_t now) {
    if (logThrottle_.allows(client + '|' + reason, now)) {
        ServiceLog::warning("refused " + client + ": " + reason + " (answered 429; logged once a minute)");
    }
    return reply;
}

ApiReply ServiceCore::phoneInfo(std::string_view phoneToken) {
    const auto context = livePhone(phoneToken);
    if (!context) {
        return unauthorized;
    }
    return ApiReply::ok({{"pairingId", context->phone.id},
                         {"name", context->phone.name},
                         {"computerId", context->computer.id},
                         {"computerName", context->computer.name},
                         {"computerOnline", isOnline(context->computer.id)}});
}

ApiReply ServiceCore::sendText(std::string_view phoneToken, std::string_view text) {
    const auto context = livePhone(phoneToken);
    if (!context) {
        return unauthorized;
    }
    const auto length = utf8CodePointCount(text);
    if (!length) {
        return ApiReply::error(400, "The text is not valid UTF-8.");
    }
    if (*length == 0) {
        return ApiReply::error(400, "The text is empty.");
    }
    if (*length > maxTextCharacters) {
        return ApiReply::error(413, "The text is longer than 10000 characters.");
    }
    const std::string& computerId = context->computer.id;
    const std::int64_t now = clock_.nowMs();
    if (storage_.untypedTextCount(computerId) >= maxWaitingTexts) {
        return tooMany("Too many texts are waiting for the computer.", minuteMs);
    }
    const auto waitingBytes = storage_.untypedTextBytes(computerId, now - waitingTextLifetimeMs);
    if (waitingBytes + static_cast<std::int64_t>(text.size()) > waitingTextBudgetBytes) {
        return tooMany("Too much text is waiting for the computer. Try again once it has typed some.", minuteMs);
    }
    TextRecord record{0, Secrets::newId(), computerId, context->phone.id, std::string(text), now, {}, {}};
    storage_.insertText(record);
    expireTexts();
    notify(events_.textQueued, computerId);

    const auto stored = storage_.phoneTexts(context->phone.id, 1);
    json body = textJson(stored.empty() ? record : stored.front());
    body["computerOnline"] = isOnline(computerId);
    return ApiReply::ok(std::move(body));
}

ApiReply ServiceCore::phoneTexts(std::string_view phoneToken) {
    const auto context = livePhone(phoneToken);
    if (!context) {
        return unauthorized;
    }
    json texts = json::array();
    for (const TextRecord& text : storage_.phoneTexts(context->phone.id, phoneTextHistory)) {
        texts.push_back(textJson(text));
    }
    return ApiReply::ok({{"texts", std::move(texts)}, {"computerOnline", isOnline(context->computer.id)}});
}

ApiReply ServiceCore::unpairPhone(std::string_view phoneToken) {
    const auto context = livePhone(phoneToken);
    if (!context) {
        return unauthorized;
    }
    storage_.deletePhone(context->computer.id, context->phone.id);
    notify(events_.phonesChanged, context->computer.id);
    return ApiReply::ok({{"unpaired", true}});
}

ApiReply ServiceCore::removeComputer(std::string_view phoneToken) {
    const auto context = livePhone(phoneToken);
    if (!context) {
        return unauthorized;
    }
    const std::string& computerId = context->computer.id;
    storage_.transaction([&] {
        storage_.setComputerStatus(computerId, ComputerStatus::revoked);
        storage_.deleteComputerBelongings(computerId);
    });
    notify(events_.computerRevoked, computerId);
    return ApiReply::ok({{"removed", true}});
}

std::vector<ServiceCore::PendingText> ServiceCore::textsToDeliver(const std::string& computerId,
                                                                  std::int64_t afterSerial, int limit) {
    std::vector<PendingText> pending;
    const std::int64_t createdAfter = clock_.nowMs() - waitingTextLifetimeMs;
    for (TextRecord& text : storage_.untypedTexts(computerId, afterSerial, createdAfter, limit)) {
        pending.push_back({text.serial, std::move(text.id), std::move(text.text)});
    }
    return pending;
}

bool ServiceCore::isWaiting(const std::string& computerId, std::string_view textId) {
    return storage_.isTextUntyped(computerId, textId);
}

void ServiceCore::markDelivered(const std::string& computerId, std::string_view textId) {
    storage_.markTextDelivered(computerId, textId, clock_.nowMs());
}

void ServiceCore::acknowledge(const std::string& computerId, std::string_view textId) {
    storage_.markTextTyped(computerId, textId, clock_.nowMs());
}

void ServiceCore::expireTexts() {
    const std::int64_t now = clock_.nowMs();
    storage_.deleteTypedTexts(now - dayMs);
    storage_.deleteTextsCreatedBy(now - waitingTextLifetimeMs);
}

std::optional<ComputerRecord> ServiceCore::liveComputer(std::string_view token) {
    if (token.empty()) {
        return std::nullopt;
    }
    auto computer = storage_.computerByTokenHash(Secrets::tokenHash(token));
    if (!computer || computer->status == ComputerStatus::revoked) {
        return std::nullopt;
    }
    return computer;
}

std::optional<ServiceCore::PhoneContext> ServiceCore::livePhone(std::string_view token) {
    if (token.empty()) {
        return std::nullopt;
    }
    auto phone = storage_.phoneByTokenHash(Secrets::tokenHash(token));
    auto computer = phone ? storage_.computer(phone->computerId) : std::nullopt;
    if (!computer || computer->status == ComputerStatus::revoked) {
        return std::nullopt;
    }
    const std::int64_t now = clock_.nowMs();
    if (now - phone->lastSeenAt >= lastSeenResolutionMs) {
        storage_.touchPhone(phone->id, now);
        phone->lastSeenAt = now;
    }
    return PhoneContext{std::move(*phone), std::move(*computer)};
}

bool ServiceCore::isOnline(const std::string& computerId) const {
    return events_.computerOnline && events_.computerOnline(computerId);
}

void ServiceCore::notify(const std::function<void(const std::string&)>& event, const std::string& computerId) const {
    if (event) {
        event(computerId);
    }
}

} // namespace keyferry::service
