#include "CFPreferencesDefaults.h"

#include "CFStrings.h"

namespace keyferry {

CFPreferencesDefaults::CFPreferencesDefaults() = default;

CFPreferencesDefaults::CFPreferencesDefaults(const std::string& applicationId)
    : applicationId_(CFStrings::string(applicationId)) {}

CFStringRef CFPreferencesDefaults::domain() const {
    return applicationId_ ? applicationId_.get() : kCFPreferencesCurrentApplication;
}

CFRef<CFPropertyListRef> CFPreferencesDefaults::copy(const std::string& key) const {
    const CFRef<CFStringRef> name = CFStrings::string(key);
    if (!name) {
        return {};
    }
    return CFRef<CFPropertyListRef>(CFPreferencesCopyAppValue(name.get(), domain()));
}

void CFPreferencesDefaults::write(const std::string& key, CFPropertyListRef value) {
    const CFRef<CFStringRef> name = CFStrings::string(key);
    if (!name) {
        return;
    }
    CFPreferencesSetAppValue(name.get(), value, domain());
    CFPreferencesAppSynchronize(domain());
}

std::optional<std::string> CFPreferencesDefaults::string(const std::string& key) const {
    return CFStrings::utf8(copy(key).get());
}

std::optional<bool> CFPreferencesDefaults::boolean(const std::string& key) const {
    const CFRef<CFPropertyListRef> value = copy(key);
    if (!value || CFGetTypeID(value.get()) != CFBooleanGetTypeID()) {
        return std::nullopt;
    }
    return CFBooleanGetValue(static_cast<CFBooleanRef>(value.get())) != 0;
}

std::optional<std::vector<std::string>> CFPreferencesDefaults::stringArray(const std::string& key) const {
    return CFStrings::utf8Array(copy(key).get());
}

void CFPreferencesDefaults::setString(const std::string& key, const std::string& value) {
    const CFRef<CFStringRef> text = CFStrings::string(value);
    if (text) {
        write(key, text.get());
    }
}

void CFPreferencesDefaults::setBoolean(const std::string& key, bool value) {
    write(key, value ? kCFBooleanTrue : kCFBooleanFalse);
}

void CFPreferencesDefaults::setStringArray(const std::string& key, const std::vector<std::string>& value) {
    const CFRef<CFArrayRef> array = CFStrings::stringArray(value);
    if (array) {
        write(key, array.get());
    }
}

void CFPreferencesDefaults::remove(const std::string& key) {
    write(key, nullptr);
}

} // namespace keyferry
