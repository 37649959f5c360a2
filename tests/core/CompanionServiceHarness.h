#pragma once

#include "CompanionService.h"
#include "FakeClock.h"
#include "InMemoryDefaults.h"
#include "InMemorySecretBackend.h"
#include "ManualSerialQueue.h"
#include "RecordingKeyboardPoster.h"
#include "RecordingMainThread.h"
#include "ScriptedHttpClient.h"
#include "ScriptedWebSocketFactory.h"
#include "SettableAccessibilityProbe.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace keyferry {
// Readable states in test failures.
void PrintTo(CompanionConnectionState state, std::ostream* out);
} // namespace keyferry

namespace keyferry::harness {

inline constexpr const char* baseURL = "https://keyferry.example:8443/base";
inline constexpr const char* socketURL = "wss://keyferry.example:8443/v1/computers/connect";
inline constexpr const char* computerName = "Studio desk";
inline constexpr const char* storedToken = "token-1";

inline constexpr const char* startPath = "v1/computers/pair/start";
inline constexpr const char* codePath = "v1/computers/pair/code";
inline constexpr const char* statusPath = "v1/computers/pair/status";
inline constexpr const char* phonesPath = "v1/computers/phones";
inline constexpr const char* removePath = "v1/computers/phones/remove";

inline std::string url(const std::string& path) {
    return std::string(baseURL) + "/" + path;
}

// JSON replies and frames of the service.
std::string phonesReply(const std::vector<PairedPhone>& phones);
std::string statusReply(const std::string& status, std::optional<bool> pairingPending = std::nullopt,
                        std::optional<bool> pairingExpired = std::nullopt, bool paired = false);
std::string pairingReply(std::optional<std::string> token, std::int64_t expiresAtMs,
                         const std::string& code = "K7Q-42F");
std::string insertText(const std::string& id, const std::string& text);
PairedPhone phone(const std::string& id);

// The ids of the frames sent on a socket, each of which must be exactly {"type":"ack","id":...}; any other
// frame shows up as "<not an ack>".
std::vector<std::string> ackedIds(const fakes::ScriptedWebSocketTask& socket);

// The in-memory secrets, with one more way to fail: the token can vanish after a number of reads, as when
// another program deletes the item between two of the service's reads.
class CompanionServiceSecrets : public fakes::InMemorySecretBackend {
public:
    SecretStatus find(const SecretQuery& query, std::string& value) override;

    std::optional<int> dropTokenAfterFinds;
};

// The in-memory defaults, telling the test of every string-array write as it happens.
class CompanionServiceDefaults : public fakes::InMemoryDefaults {
public:
    void setStringArray(const std::string& key, const std::vector<std::string>& value) override;

    std::function<void(const std::string& key)> onArrayWrite;
};

// One CompanionService over every fake, with everything it reports recorded, in the order the main
// thread received it.
class CompanionServiceHarness {
public:
    explicit CompanionServiceHarness(const std::string& serviceURL = baseURL,
                                     const std::string& thisComputersName = computerName);

    // Runs the service's queue and the main thread until neither has anything due now.
    void settle();
    // Moves the virtual clock, then settles.
    void advance(double seconds);

    // Puts a complete pairing in the store, as an earlier run would have left it.
    void plantPairing(const std::string& token = storedToken);
    bool storeIsPaired() const;
    std::optional<std::string> storedCredential() const;
    std::vector<std::string> processedIds() const;

    // start() on a paired, trusted computer, up to the service's "connected" (the phone list answered).
    fakes::ScriptedWebSocketTask& startConnected();
    // The same, with the records of getting there cleared.
    fakes::ScriptedWebSocketTask& connected();
    // Answers the oldest pending request for `path` and settles.
    void respond(const std::string& path, int status, const std::string& body);
    void failTransport(const std::string& path);

    fakes::ScriptedWebSocketTask& lastSocket() { return sockets.lastTask(); }
    std::size_t requestsTo(const std::string& path) const { return http.countForPath(path); }
    void clearRecords();

    fakes::ManualSerialQueue queue;
    fakes::FakeClock clock{queue};
    fakes::RecordingMainThread mainThread;
    fakes::ScriptedHttpClient http;
    fakes::ScriptedWebSocketFactory sockets;
    CompanionServiceDefaults defaults;
    CompanionServiceSecrets secrets;
    fakes::RecordingKeyboardPoster keyboard;
    fakes::SettableAccessibilityProbe accessibility;
    std::shared_ptr<CompanionService> service;

    std::vector<CompanionConnectionState> states;
    std::vector<std::string> errors;
    std::vector<std::vector<PairedPhone>> phoneLists;
    std::vector<std::pair<std::string, CompanionService::PairCodeExpiry>> pairCodes;
    int pairingCompletions = 0;
    int accessibilityNeeded = 0;
    int textsInserted = 0;
    // Every report, as "kind" or "kind:detail", in the order it reached the main thread.
    std::vector<std::string> events;

    static SecretQuery tokenQuery() { return {"com.quillix.companion", "computer-token"}; }
};

const char* name(CompanionConnectionState state);

} // namespace keyferry::harness
