#pragma once

#include "SecretBackend.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QString>
#include <QStringList>

#include <chrono>
#include <string>

namespace keyferry {

// One conversation with the Secret Service (org.freedesktop.secrets) on the session bus, spoken through
// QtDBus: its own private connection and a "plain" transfer session, both opened when it is made and closed
// when it goes, so nothing of the keyring stays open between calls. The secrets travel over the session bus,
// which only the user can reach. Every method call shares one deadline, counted from construction.
//
// Made by SecretServiceBackend for one of its calls and used on that call's thread only.
class SecretServiceSession {
public:
    // The schema name libsecret records with each item ("xdg:schema"), kept so items written before stay found.
    static constexpr const char* schemaName = "com.quillix.companion.GenericPassword";

    explicit SecretServiceSession(std::chrono::milliseconds timeout);
    ~SecretServiceSession();
    SecretServiceSession(const SecretServiceSession&) = delete;
    SecretServiceSession& operator=(const SecretServiceSession&) = delete;

    // The object paths of the items that match the query in the unlocked default collection;
    // secretItemNotFound when there are none.
    SecretStatus existingItems(const SecretQuery& query, QStringList& items);
    SecretStatus secretOf(const QString& item, std::string& value);
    SecretStatus create(const SecretQuery& query, const std::string& value);
    SecretStatus setSecret(const QString& item, const std::string& value);
    SecretStatus remove(const QString& item);

private:
    // The unlocked default collection's path; a status when there is none.
    SecretStatus openCollection(QString& collection);
    SecretStatus openTransferSession();
    // Calls `method` and waits for the answer until the deadline; a status for a failed call.
    SecretStatus call(const QString& path, const QString& interface, const QString& method,
                      const QVariantList& arguments, QDBusMessage& reply);
    // The outcome of a call that answers with a prompt at `index`: success only when the service needed none
    // (a prompt would ask the user, which the application never does).
    static SecretStatus statusOfPrompt(const QDBusMessage& reply, int index);

    const std::chrono::steady_clock::time_point deadline;
    const QString connectionName;
    QDBusConnection bus;
    QString transferSession;
};

} // namespace keyferry
