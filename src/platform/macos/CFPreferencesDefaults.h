#pragma once

#include "CFRef.h"
#include "DefaultsStore.h"

#include <CoreFoundation/CoreFoundation.h>

namespace keyferry {

// The user's defaults on macOS: the application's preferences domain through CFPreferences (the store
// behind NSUserDefaults' standard defaults), with real property-list values: a string is a CFString, a
// Boolean a CFBoolean, a string array a CFArray of CFStrings. Keys are used as given ("quillix.paired", ...).
//
// The domain is the running application's (kCFPreferencesCurrentApplication: the bundle identifier,
// com.quillix.companion inside Keyferry.app), or the one given. Reads copy the value
// (CFPreferencesCopyAppValue) and answer absent for a missing value or one of another type; writes set or
// remove one key (CFPreferencesSetAppValue) and flush it (CFPreferencesAppSynchronize), so each key is
// written whole; a failed write is not reported.
//
// Ownership: owned by the application, outliving the store that uses it. Thread: any (CFPreferences is
// thread-safe); callers serialise access.
class CFPreferencesDefaults final : public DefaultsStore {
public:
    // The running application's domain.
    CFPreferencesDefaults();
    // The domain `applicationId` (for example "com.quillix.companion").
    explicit CFPreferencesDefaults(const std::string& applicationId);

    std::optional<std::string> string(const std::string& key) const override;
    std::optional<bool> boolean(const std::string& key) const override;
    std::optional<std::vector<std::string>> stringArray(const std::string& key) const override;

    void setString(const std::string& key, const std::string& value) override;
    void setBoolean(const std::string& key, bool value) override;
    void setStringArray(const std::string& key, const std::vector<std::string>& value) override;
    void remove(const std::string& key) override;

private:
    CFRef<CFPropertyListRef> copy(const std::string& key) const;
    void write(const std::string& key, CFPropertyListRef value);
    CFStringRef domain() const;

    CFRef<CFStringRef> applicationId_;
};

} // namespace keyferry
