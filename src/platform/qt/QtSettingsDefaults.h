#pragma once

#include "DefaultsStore.h"

#include <nlohmann/json.hpp>

#include <QSettings>
#include <QString>

namespace keyferry {

// The user's defaults in an INI file kept by QSettings, readable by the user only (folder 0700, file 0600).
// Every value is stored as JSON text, so that its type and its exact contents survive (QSettings' own INI
// encoding loses the type of bools and mangles lists with one element or none); a value that is not JSON of
// the type asked for reads as absent. Strings are UTF-8. Owned by the application (or a test); callers
// serialise access. Each write is flushed to the file at once; write failures are not reported.
class QtSettingsDefaults : public DefaultsStore {
public:
    // <the user's config folder, $XDG_CONFIG_HOME or ~/.config>/quillix/companion.ini
    static QString userFilePath();

    explicit QtSettingsDefaults(const QString& filePath = userFilePath());

    std::optional<std::string> string(const std::string& key) const override;
    std::optional<bool> boolean(const std::string& key) const override;
    std::optional<std::vector<std::string>> stringArray(const std::string& key) const override;

    void setString(const std::string& key, const std::string& value) override;
    void setBoolean(const std::string& key, bool value) override;
    void setStringArray(const std::string& key, const std::vector<std::string>& value) override;
    void remove(const std::string& key) override;

    QString filePath() const;

private:
    nlohmann::json read(const std::string& key) const;
    void write(const std::string& key, const nlohmann::json& value);

    QSettings settings_;
};

} // namespace keyferry
