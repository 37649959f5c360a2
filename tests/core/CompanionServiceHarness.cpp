#include "CompanionServiceHarness.h"

#include <nlohmann/json.hpp>

namespace keyferry {
void PrintTo(CompanionConnectionState state, std::ostream* out) {
    *out << harness::name(state);
}
} // namespace keyferry

namespace keyferry::harness {

std::string phonesReply(const std::vector<PairedPhone>& phones) {
    auto list = nlohmann::json::array();
    for (const auto& each : phones) {
        list.push_back({{"id", each.id},
                        {"name", each.name},
                        {"platform", each.platform},
                        {"appVersion", each.appVersion},
                        {"createdAt", each.createdAt},
                        {"lastSeenAt", each.lastSeenAt}});
    }
    return nlohmann::json{{"phones", list}}.dump();
}

std::string statusReply(const std::string& status, std::optional<bool> pairingPending,
                        std::optional<bool> pairingExpired, bool paired) {
    nlohmann::json reply{{"computerId", "computer-1"},
                         {"name", computerName},
                         {"status", status},
                         {"paired", paired},
                         {"expiresAt", 1'800'000'600'000LL}};
    if (pairingPending) {
        reply["pairingPending"] = *pairingPending;
    }
    if (pairingExpired) {
        reply["pairingExpired"] = *pairingExpired;
    }
    return reply.dump();
}

std::string pairingReply(std::optional<std::string> token, std::int64_t expiresAtMs, const std::string& code) {
    nlohmann::json reply{
        {"computerId", "computer-1"}, {"pairCode", code}, {"expiresAt", expiresAtMs}, {"status", "pending"}};
    if (token) {
        reply["computerToken"] = *token;
    }
    return reply.dump();
}

std::string insertText(const std::string& id, const std::string& text) {
    return nlohmann::json{{"type", "insert_text"}, {"id", id}, {"text", text}}.dump();
}

PairedPhone phone(const std::string& id) {
    return PairedPhone{id, "Phone " + id, "android", "2.1.0", 1'700'000'000, 1'700'000'500};
}

std::vector<std::string> ackedIds(const fakes::ScriptedWebSocketTask& socket) {
    std::vector<std::string> ids;
    for (const auto& text : socket.sentTexts()) {
        const auto frame = nlohmann::json::parse(text, nullptr, false);
        const bool isAck = frame.is_object() && frame.size() == 2 && frame.value("type", "") == "ack" &&
                           frame.contains("id") && frame["id"].is_string();
        ids.push_back(isAck ? frame["id"].get<std::string>() : "<not an ack>");
    }
    return ids;
}

const char* name(CompanionConnectionState state) {
    switch (state) {
    case CompanionConnectionState::unpaired:
        return "unpaired";
    case CompanionConnectionState::creatingCode:
        return "creatingCode";
    case CompanionConnectionState::waitingForPhone:
        return "waitingForPhone";
    case CompanionConnectionState::permissionRequired:
        return "permissionRequired";
    case CompanionConnectionState::connecting:
        return "connecting";
    case CompanionConnectionState::connected:
        return "connected";
    case CompanionConnectionState::reconnecting:
        return "reconnecting";
    }
    return "?";
}

SecretStatus CompanionServiceSecrets::find(const SecretQuery& query, std::string& value) {
    if (dropTokenAfterFinds && (*dropTokenAfterFinds)-- == 0) {
        dropTokenAfterFinds.reset();
        remove(query);
    }
    return InMemorySecretBackend::find(query, value);
}

void CompanionServiceDefaults::setStringArray(const std::string& key, const std::vector<std::string>& value) {
    InMemoryDefaults::setStringArray(key, value);
    if (onArrayWrite) {
        onArrayWrite(key);
    }
}

CompanionServiceHarness::CompanionServiceHarness(const std::string& serviceURL, const std::string& thisComputersName) {
    const CompanionServicePorts ports{queue,    mainThread, clock,    http,         sockets,
                                      defaults, secrets,    keyboard, accessibility};
    service = CompanionService::make(ports, serviceURL, thisComputersName);
    service->onStateChange = [this](CompanionConnectionState state) {
        states.push_back(state);
        events.push_back(std::string("state:") + name(state));
    };
    service->onPairCode = [this](const std::string& code, CompanionService::PairCodeExpiry expiresAt) {
        pairCodes.emplace_back(code, expiresAt);
        events.push_back("code:" + code);
    };
    service->onPairingCompleted = [this] {
        ++pairingCompletions;
        events.emplace_back("paired");
    };
    service->onPhonesChanged = [this](const std::vector<PairedPhone>& phones) {
        phoneLists.push_back(phones);
        events.push_back("phones:" + std::to_string(phones.size()));
    };
    service->onAccessibilityNeeded = [this] {
        ++accessibilityNeeded;
        events.emplace_back("accessibility");
    };
    service->onTextInserted = [this] {
        ++textsInserted;
        events.emplace_back("inserted");
    };
    service->onError = [this](const std::string& text) {
        errors.push_back(text);
        events.push_back("error:" + text);
    };
}

void CompanionServiceHarness::settle() {
    while (queue.runUntilIdle() + mainThread.drain() > 0) {
    }
}

void CompanionServiceHarness::advance(double seconds) {
    queue.advance(seconds);
    settle();
}

void CompanionServiceHarness::plantPairing(const std::string& token) {
    defaults.setString("quillix.computerId", "computer-1");
    defaults.setBoolean("quillix.paired", true);
    secrets.plant(tokenQuery(), token);
}

bool CompanionServiceHarness::storeIsPaired() const {
    return defaults.boolean("quillix.paired").value_or(false) &&
           !defaults.string("quillix.computerId").value_or("").empty() && storedCredential().has_value();
}

std::optional<std::string> CompanionServiceHarness::storedCredential() const {
    const auto item = secrets.item(tokenQuery());
    return item ? std::optional<std::string>(item->value) : std::nullopt;
}

std::vector<std::string> CompanionServiceHarness::processedIds() const {
    return defaults.stringArray("quillix.processedMessageIds").value_or(std::vector<std::string>{});
}

fakes::ScriptedWebSocketTask& CompanionServiceHarness::startConnected() {
    plantPairing();
    service->start();
    settle();
    respond(phonesPath, 200, phonesReply({phone("p1")}));
    auto& socket = lastSocket();
    socket.deliverText(R"({"type":"connected"})");
    settle();
    respond(phonesPath, 200, phonesReply({phone("p1")}));
    return socket;
}

fakes::ScriptedWebSocketTask& CompanionServiceHarness::connected() {
    auto& socket = startConnected();
    clearRecords();
    return socket;
}

void CompanionServiceHarness::respond(const std::string& path, int status, const std::string& body) {
    http.respondTo(path, status, body);
    settle();
}

void CompanionServiceHarness::failTransport(const std::string& path) {
    http.failTransportTo(path);
    settle();
}

void CompanionServiceHarness::clearRecords() {
    states.clear();
    errors.clear();
    phoneLists.clear();
    pairCodes.clear();
    pairingCompletions = 0;
    accessibilityNeeded = 0;
    textsInserted = 0;
    events.clear();
}

} // namespace keyferry::harness
