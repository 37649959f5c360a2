#include "QtSettingsDefaults.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

namespace keyferry {

namespace {

// Creates the folder (0700) and the file (0600) before QSettings writes it: QSettings replaces the file on
// each save but keeps the permissions of the file it replaces.
QString privateFile(const QString& filePath) {
    const QString folder = QFileInfo(filePath).absolutePath();
    QDir().mkpath(folder);
    QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    QFile file(filePath);
    const auto ownerOnly = QFile::ReadOwner | QFile::WriteOwner;
    if (!file.exists()) {
        file.open(QIODevice::WriteOnly, ownerOnly);
    } else {
        file.setPermissions(ownerOnly);
    }
    return filePath;
}

} // namespace

QString QtSettingsDefaults::userFilePath() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/quillix/companion.ini");
}

QtSettingsDefaults::QtSettingsDefaults(const QString& filePath)
    : settings_(privateFile(filePath), QSettings::IniFormat) {}

QString QtSettingsDefaults::filePath() const {
    return settings_.fileName();
}

std::optional<std::string> QtSettingsDefaults::string(const std::string& key) const {
    const auto value = read(key);
    return value.is_string() ? std::optional(value.get<std::string>()) : std::nullopt;
}

std::optional<bool> QtSettingsDefaults::boolean(const std::string& key) const {
    const auto value = read(key);
    return value.is_boolean() ? std::optional(value.get<bool>()) : std::nullopt;
}

std::optional<std::vector<std::string>> QtSettingsDefaults::stringArray(const std::string& key) const {
    const auto value = read(key);
    if (!value.is_array()) {
        return std::nullopt;
    }
    std::vector<std::string> strings;
    for (const auto& element : value) {
        if (!element.is_string()) {
            return std::nullopt;
        }
        strings.push_back(element.get<std::string>());
    }
    return strings;
}

void QtSettingsDefaults::setString(const std::string& key, const std::string& value) {
    write(key, value);
}

void QtSettingsDefaults::setBoolean(const std::string& key, bool value) {
    write(key, value);
}

void QtSettingsDefaults::setStringArray(const std::string& key, const std::vector<std::string>& value) {
    write(key, nlohmann::json(value));
}

void QtSettingsDefaults::remove(const std::string& key) {
    settings_.remove(QString::fromStdString(key));
    settings_.sync();
}

nlohmann::json QtSettingsDefaults::read(const std::string& key) const {
    const QVariant stored = settings_.value(QString::fromStdString(key));
    if (stored.typeId() != QMetaType::QString) {
        return nullptr; // absent, or written by someone else in another form
    }
    return nlohmann::json::parse(stored.toString().toStdString(), nullptr, false);
}

void QtSettingsDefaults::write(const std::string& key, const nlohmann::json& value) {
    const auto text = value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    settings_.setValue(QString::fromStdString(key), QString::fromStdString(text));
    settings_.sync();
}

} // namespace keyferry
