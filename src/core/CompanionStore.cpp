#include "CompanionStore.h"

#include <algorithm>

namespace keyferry {

namespace {

const std::string computerIdKey = "quillix.computerId";
const std::string pairedKey = "quillix.paired";
const std::string processedMessageIdsKey = "quillix.processedMessageIds";
const std::string keychainService = "com.quillix.companion";
const std::string tokenAccount = "computer-token";

bool contains(const std::vector<std::string>& ids, const std::string& id) {
    return std::ranges::find(ids, id) != ids.end();
}

} // namespace

CompanionStore::CompanionStore(DefaultsStore& defaultsStore, SecretBackend& secrets)
    : defaults(defaultsStore), keychain(secrets, keychainService) {}

bool CompanionStore::isPaired() {
    const std::scoped_lock guard(lock);
    // Cheapest first; the keychain is read only when the defaults already say paired.
    if (!defaults.boolean(pairedKey).value_or(false)) {
        return false;
    }
    const auto computerId = defaults.string(computerIdKey);
    if (!computerId || computerId->empty()) {
        return false;
    }
    const auto token = keychain.string(tokenAccount);
    return token && !token->empty();
}

std::string CompanionStore::computerToken() {
    const std::scoped_lock guard(lock);
    return keychain.string(tokenAccount).value_or(std::string());
}

std::optional<StoreError> CompanionStore::savePairing(const std::string& computerId, const std::string& token,
                                                      bool paired) {
    const std::scoped_lock guard(lock);
    // The token first: a failed write must never leave a computer id without its token.
    if (auto error = keychain.set(token, tokenAccount)) {
        return error;
    }
    defaults.setString(computerIdKey, computerId);
    defaults.setBoolean(pairedKey, paired);
    return std::nullopt;
}

void CompanionStore::setPaired(bool paired) {
    const std::scoped_lock guard(lock);
    defaults.setBoolean(pairedKey, paired);
}

void CompanionStore::clearPairing() {
    const std::scoped_lock guard(lock);
    keychain.remove(tokenAccount); // an item already gone is no error
    defaults.remove(computerIdKey);
    defaults.remove(pairedKey);
    defaults.remove(processedMessageIdsKey);
}

bool CompanionStore::hasProcessedMessage(const std::string& id) {
    const std::scoped_lock guard(lock);
    return contains(defaults.stringArray(processedMessageIdsKey).value_or(std::vector<std::string>()), id);
}

void CompanionStore::recordProcessedMessage(const std::string& id) {
    const std::scoped_lock guard(lock);
    auto ids = defaults.stringArray(processedMessageIdsKey).value_or(std::vector<std::string>());
    if (contains(ids, id)) {
        return;
    }
    const bool wasFull = ids.size() >= processedMessageLimit;
    ids.push_back(id);
    if (wasFull) {
        // Oldest first out; a list grown too long elsewhere is cut back here too.
        ids.erase(ids.begin(), ids.end() - static_cast<std::ptrdiff_t>(processedMessageLimit));
    }
    defaults.setStringArray(processedMessageIdsKey, ids);
}

} // namespace keyferry
