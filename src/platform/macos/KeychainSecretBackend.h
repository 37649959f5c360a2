#pragma once

#include "SecretBackend.h"

namespace keyferry {

// The user's secret store on macOS: generic-password items in the user's keychain through the Security
// framework. An item is identified by exactly kSecClass = kSecClassGenericPassword, kSecAttrService =
// the query's service and kSecAttrAccount = its account; its bytes are kSecValueData.
//
//   find    SecItemCopyMatching with kSecReturnData and kSecMatchLimitOne
//   update  SecItemUpdate, changing only kSecValueData (an existing item keeps its accessibility)
//   add     SecItemAdd with kSecAttrAccessible = kSecAttrAccessibleAfterFirstUnlock, no result wanted
//   remove  SecItemDelete
//
// Every call answers the Security framework's own OSStatus unchanged (errSecItemNotFound is
// secretItemNotFound), except two cases of its own: errSecParam when the service, account or value cannot
// be turned into CoreFoundation objects, and errSecDecode when a found item's value is not data. No access
// group, synchronisation, label or access control is set.
//
// Ownership: owned by the application, outliving the stores that use it. Thread: any; calls are serialised
// by the caller (the companion store's lock). The system may show its own keychain prompt during a call.
class KeychainSecretBackend final : public SecretBackend {
public:
    SecretStatus find(const SecretQuery& query, std::string& value) override;
    SecretStatus update(const SecretQuery& query, const std::string& value) override;
    SecretStatus add(const SecretQuery& query, const std::string& value, SecretAccessibility accessibility) override;
    SecretStatus remove(const SecretQuery& query) override;
};

} // namespace keyferry
