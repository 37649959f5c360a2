#pragma once

#include "SecretBackend.h"

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace keyferry::fakes {

// A secret store in memory, keyed by (service, account), that records every call and can be told to fail.
// add() of an item that exists answers secretDuplicateItem, as a keychain does. Single-threaded.
class InMemorySecretBackend : public SecretBackend {
public:
    static constexpr SecretStatus secretDuplicateItem = -25299;
    static constexpr SecretStatus secretInteractionNotAllowed = -25308; // e.g. a locked keychain

    enum class Operation { find, update, add, remove };

    struct Item {
        std::string value;
        SecretAccessibility accessibility = SecretAccessibility::afterFirstUnlock;
    };

    struct Call {
        Operation operation;
        SecretQuery query;
        std::optional<std::string> value; // what update() or add() was given
    };

    SecretStatus find(const SecretQuery& query, std::string& value) override;
    SecretStatus update(const SecretQuery& query, const std::string& value) override;
    SecretStatus add(const SecretQuery& query, const std::string& value, SecretAccessibility accessibility) override;
    SecretStatus remove(const SecretQuery& query) override;

    // The next call of `operation` answers `status` without touching the items.
    void failNext(Operation operation, SecretStatus status);
    // Every call of `operation` answers `status` until clearFailures().
    void failAlways(Operation operation, SecretStatus status);
    void clearFailures();

    // Puts an item in place directly (not recorded as a call).
    void plant(const SecretQuery& query, std::string value,
               SecretAccessibility accessibility = SecretAccessibility::afterFirstUnlock);
    std::optional<Item> item(const SecretQuery& query) const;
    std::size_t itemCount() const { return items.size(); }

    const std::vector<Call>& calls() const { return recorded; }
    std::size_t callCount(Operation operation) const;
    void clearCalls() { recorded.clear(); }

private:
    using Key = std::pair<std::string, std::string>;
    static Key keyOf(const SecretQuery& query) { return {query.service, query.account}; }

    std::optional<SecretStatus> forcedStatus(Operation operation);
    void record(Operation operation, const SecretQuery& query, std::optional<std::string> value);

    std::map<Key, Item> items;
    std::vector<Call> recorded;
    std::map<Operation, SecretStatus> nextFailures;
    std::map<Operation, SecretStatus> persistentFailures;
};

} // namespace keyferry::fakes
