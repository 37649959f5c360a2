#include "InMemorySecretBackend.h"

#include <algorithm>

namespace keyferry::fakes {

std::optional<SecretStatus> InMemorySecretBackend::forcedStatus(Operation operation) {
    if (const auto next = nextFailures.find(operation); next != nextFailures.end()) {
        const SecretStatus status = next->second;
        nextFailures.erase(next);
        return status;
    }
    if (const auto always = persistentFailures.find(operation); always != persistentFailures.end()) {
        return always->second;
    }
    return std::nullopt;
}

void InMemorySecretBackend::record(Operation operation, const SecretQuery& query, std::optional<std::string> value) {
    recorded.push_back(Call{operation, query, std::move(value)});
}

SecretStatus InMemorySecretBackend::find(const SecretQuery& query, std::string& value) {
    record(Operation::find, query, std::nullopt);
    if (const auto forced = forcedStatus(Operation::find)) {
        return *forced;
    }
    const auto found = items.find(keyOf(query));
    if (found == items.end()) {
        return secretItemNotFound;
    }
    value = found->second.value;
    return secretSuccess;
}

SecretStatus InMemorySecretBackend::update(const SecretQuery& query, const std::string& value) {
    record(Operation::update, query, value);
    if (const auto forced = forcedStatus(Operation::update)) {
        return *forced;
    }
    const auto found = items.find(keyOf(query));
    if (found == items.end()) {
        return secretItemNotFound;
    }
    found->second.value = value;
    return secretSuccess;
}

SecretStatus InMemorySecretBackend::add(const SecretQuery& query, const std::string& value,
                                        SecretAccessibility accessibility) {
    record(Operation::add, query, value);
    if (const auto forced = forcedStatus(Operation::add)) {
        return *forced;
    }
    const auto [position, inserted] = items.try_emplace(keyOf(query), Item{value, accessibility});
    return inserted ? secretSuccess : secretDuplicateItem;
}

SecretStatus InMemorySecretBackend::remove(const SecretQuery& query) {
    record(Operation::remove, query, std::nullopt);
    if (const auto forced = forcedStatus(Operation::remove)) {
        return *forced;
    }
    return items.erase(keyOf(query)) > 0 ? secretSuccess : secretItemNotFound;
}

void InMemorySecretBackend::failNext(Operation operation, SecretStatus status) {
    nextFailures[operation] = status;
}

void InMemorySecretBackend::failAlways(Operation operation, SecretStatus status) {
    persistentFailures[operation] = status;
}

void InMemorySecretBackend::clearFailures() {
    nextFailures.clear();
    persistentFailures.clear();
}

void InMemorySecretBackend::plant(const SecretQuery& query, std::string value, SecretAccessibility accessibility) {
    items[keyOf(query)] = Item{std::move(value), accessibility};
}

std::optional<InMemorySecretBackend::Item> InMemorySecretBackend::item(const SecretQuery& query) const {
    const auto found = items.find(keyOf(query));
    if (found == items.end()) {
        return std::nullopt;
    }
    return found->second;
}

std::size_t InMemorySecretBackend::callCount(Operation operation) const {
    return static_cast<std::size_t>(
        std::ranges::count_if(recorded, [operation](const Call& call) { return call.operation == operation; }));
}

} // namespace keyferry::fakes
