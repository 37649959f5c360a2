#pragma once

#include "DefaultsStore.h"
#include "KeychainStore.h"

#include <mutex>
#include <optional>
#include <string>

namespace keyferry {

// The pairing record, the computer token and the ids of texts already typed. Owned by the service; every
// operation takes the one lock for its whole duration, so any thread may call it. Reads never fail (anything
// absent or unreadable reads as not paired, an empty token, no ids); only savePairing() reports a failure,
// the keychain's, and then writes nothing else.
class CompanionStore {
public:
    static constexpr std::size_t processedMessageLimit = 200;

    CompanionStore(DefaultsStore& defaults, SecretBackend& secrets);

    bool isPaired();
    std::string computerToken();
    std::optional<StoreError> savePairing(const std::string& computerId, const std::string& token, bool paired);
    void setPaired(bool paired);
    void clearPairing();
    bool hasProcessedMessage(const std::string& id);
    void recordProcessedMessage(const std::string& id);

private:
    DefaultsStore& defaults;
    std::mutex lock;
    KeychainStore keychain;
};

} // namespace keyferry
