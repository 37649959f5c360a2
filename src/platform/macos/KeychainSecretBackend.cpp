#include "KeychainSecretBackend.h"

#include "CFRef.h"
#include "CFStrings.h"

#include <Security/Security.h>

namespace keyferry {

namespace {

using MutableDictionary = CFRef<CFMutableDictionaryRef>;

MutableDictionary emptyDictionary() {
    return MutableDictionary(CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                                       &kCFTypeDictionaryValueCallBacks));
}

// The three entries that identify one item; empty when a part cannot be made.
MutableDictionary baseQuery(const SecretQuery& query) {
    const CFRef<CFStringRef> service = CFStrings::string(query.service);
    const CFRef<CFStringRef> account = CFStrings::string(query.account);
    MutableDictionary dictionary = emptyDictionary();
    if (!service || !account || !dictionary) {
        return {};
    }
    CFDictionarySetValue(dictionary.get(), kSecClass, kSecClassGenericPassword);
    CFDictionarySetValue(dictionary.get(), kSecAttrService, service.get());
    CFDictionarySetValue(dictionary.get(), kSecAttrAccount, account.get());
    return dictionary;
}

CFStringRef accessibleValue(SecretAccessibility accessibility) {
    switch (accessibility) {
    case SecretAccessibility::afterFirstUnlock:
        return kSecAttrAccessibleAfterFirstUnlock;
    }
    return kSecAttrAccessibleAfterFirstUnlock;
}

} // namespace

SecretStatus KeychainSecretBackend::find(const SecretQuery& query, std::string& value) {
    const MutableDictionary search = baseQuery(query);
    if (!search) {
        return errSecParam;
    }
    CFDictionarySetValue(search.get(), kSecReturnData, kCFBooleanTrue);
    CFDictionarySetValue(search.get(), kSecMatchLimit, kSecMatchLimitOne);
    CFTypeRef found = nullptr;
    const OSStatus status = SecItemCopyMatching(search.get(), &found);
    const CFRef<CFTypeRef> result(found);
    if (status != errSecSuccess) {
        return status;
    }
    std::optional<std::string> bytes = CFStrings::bytes(result.get());
    if (!bytes) {
        return errSecDecode;
    }
    value = std::move(*bytes);
    return errSecSuccess;
}

SecretStatus KeychainSecretBackend::update(const SecretQuery& query, const std::string& value) {
    const MutableDictionary search = baseQuery(query);
    const MutableDictionary changes = emptyDictionary();
    const CFRef<CFDataRef> data = CFStrings::data(value);
    if (!search || !changes || !data) {
        return errSecParam;
    }
    CFDictionarySetValue(changes.get(), kSecValueData, data.get());
    return SecItemUpdate(search.get(), changes.get());
}

SecretStatus KeychainSecretBackend::add(const SecretQuery& query, const std::string& value,
                                        SecretAccessibility accessibility) {
    const MutableDictionary item = baseQuery(query);
    const CFRef<CFDataRef> data = CFStrings::data(value);
    if (!item || !data) {
        return errSecParam;
    }
    CFDictionarySetValue(item.get(), kSecValueData, data.get());
    CFDictionarySetValue(item.get(), kSecAttrAccessible, accessibleValue(accessibility));
    return SecItemAdd(item.get(), nullptr);
}

SecretStatus KeychainSecretBackend::remove(const SecretQuery& query) {
    const MutableDictionary search = baseQuery(query);
    if (!search) {
        return errSecParam;
    }
    return SecItemDelete(search.get());
}

} // namespace keyferry
