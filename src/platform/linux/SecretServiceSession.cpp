#include "SecretServiceSession.h"

#include "SecretServiceBackend.h"

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QMap>

#include <atomic>
#include <mutex>

namespace keyferry::secretservice {

// The Secret Service's (oayays): the transfer session, its parameters (none for "plain"), the bytes and
// their content type.
struct TransferredSecret {
    QDBusObjectPath session;
    QByteArray parameters;
    QByteArray value;
    QString contentType;
};

QDBusArgument& operator<<(QDBusArgument& argument, const TransferredSecret& secret) {
    argument.beginStructure();
    argument << secret.session << secret.parameters << secret.value << secret.contentType;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, TransferredSecret& secret) {
    argument.beginStructure();
    argument >> secret.session >> secret.parameters >> secret.value >> secret.contentType;
    argument.endStructure();
    return argument;
}

} // namespace keyferry::secretservice

Q_DECLARE_METATYPE(keyferry::secretservice::TransferredSecret)

namespace keyferry {

namespace {

using secretservice::TransferredSecret;
using Attributes = QMap<QString, QString>;

const QString serviceName = QStringLiteral("org.freedesktop.secrets");
const QString servicePath = QStringLiteral("/org/freedesktop/secrets");
const QString serviceInterface = QStringLiteral("org.freedesktop.Secret.Service");
const QString collectionInterface = QStringLiteral("org.freedesktop.Secret.Collection");
const QString itemInterface = QStringLiteral("org.freedesktop.Secret.Item");
const QString noPath = QStringLiteral("/");

void registerTypes() {
    static std::once_flag registered;
    std::call_once(registered, [] {
        qDBusRegisterMetaType<TransferredSecret>();
        qDBusRegisterMetaType<Attributes>();
    });
}

QString uniqueConnectionName() {
    static std::atomic<unsigned> made{0};
    return QStringLiteral("keyferry-secrets-") + QString::number(made++);
}

// The session bus as it is now: the address is read afresh, so a bus that moved is found again.
QDBusConnection connectSessionBus(const QString& name) {
    const QByteArray address = qgetenv("DBUS_SESSION_BUS_ADDRESS");
    if (address.isEmpty()) {
        return QDBusConnection::connectToBus(QDBusConnection::SessionBus, name);
    }
    return QDBusConnection::connectToBus(QString::fromUtf8(address), name);
}

Attributes attributesOf(const SecretQuery& query) {
    return {{QStringLiteral("service"), QString::fromStdString(query.service)},
            {QStringLiteral("account"), QString::fromStdString(query.account)},
            {QStringLiteral("xdg:schema"), QString::fromLatin1(SecretServiceSession::schemaName)}};
}

QString pathAt(const QDBusMessage& reply, int index) {
    return reply.arguments().value(index).value<QDBusObjectPath>().path();
}

} // namespace

SecretServiceSession::SecretServiceSession(std::chrono::milliseconds timeout)
    : deadline(std::chrono::steady_clock::now() + timeout), connectionName(uniqueConnectionName()),
      bus(connectSessionBus(connectionName)) {
    registerTypes();
}

// Closing the connection ends the transfer session too: the service drops the sessions of a peer that left.
SecretServiceSession::~SecretServiceSession() {
    QDBusConnection::disconnectFromBus(connectionName);
}

SecretStatus SecretServiceSession::call(const QString& path, const QString& interface, const QString& method,
                                        const QVariantList& arguments, QDBusMessage& reply) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
    if (left <= 0 || !bus.isConnected()) {
        return SecretServiceBackend::secretNotAvailable;
    }
    QDBusMessage message = QDBusMessage::createMethodCall(serviceName, path, interface, method);
    message.setArguments(arguments);
    reply = bus.call(message, QDBus::Block, static_cast<int>(left));
    if (reply.type() != QDBusMessage::ReplyMessage) {
        const bool locked = reply.errorName() == QStringLiteral("org.freedesktop.Secret.Error.IsLocked");
        return locked ? SecretServiceBackend::secretInteractionNotAllowed : SecretServiceBackend::secretNotAvailable;
    }
    return secretSuccess;
}

SecretStatus SecretServiceSession::openCollection(QString& collection) {
    QDBusMessage reply;
    if (const SecretStatus status =
            call(servicePath, serviceInterface, QStringLiteral("ReadAlias"), {QStringLiteral("default")}, reply);
        status != secretSuccess) {
        return status;
    }
    collection = pathAt(reply, 0);
    if (collection.isEmpty() || collection == noPath) {
        return SecretServiceBackend::secretNotAvailable;
    }
    // Asked on every call, so that the locked state is the current one.
    if (const SecretStatus status = call(collection, QStringLiteral("org.freedesktop.DBus.Properties"),
                                         QStringLiteral("Get"), {collectionInterface, QStringLiteral("Locked")}, reply);
        status != secretSuccess) {
        return status;
    }
    const bool locked = reply.arguments().value(0).value<QDBusVariant>().variant().toBool();
    return locked ? SecretServiceBackend::secretInteractionNotAllowed : secretSuccess;
}

SecretStatus SecretServiceSession::openTransferSession() {
    if (!transferSession.isEmpty()) {
        return secretSuccess;
    }
    QDBusMessage reply;
    // "plain": the token crosses only the user's own session bus, where any program of the user could ask the
    // keyring for the item itself; an encrypted transfer would keep a key-exchange library resident for nothing.
    const QVariantList arguments{QStringLiteral("plain"), QVariant::fromValue(QDBusVariant(QString()))};
    if (const SecretStatus status =
            call(servicePath, serviceInterface, QStringLiteral("OpenSession"), arguments, reply);
        status != secretSuccess) {
        return status;
    }
    transferSession = pathAt(reply, 1);
    return transferSession.isEmpty() ? SecretServiceBackend::secretNotAvailable : secretSuccess;
}

SecretStatus SecretServiceSession::existingItems(const SecretQuery& query, QStringList& items) {
    QString collection;
    if (const SecretStatus status = openCollection(collection); status != secretSuccess) {
        return status;
    }
    QDBusMessage reply;
    if (const SecretStatus status = call(collection, collectionInterface, QStringLiteral("SearchItems"),
                                         {QVariant::fromValue(attributesOf(query))}, reply);
        status != secretSuccess) {
        return status;
    }
    for (const QDBusObjectPath& item : qdbus_cast<QList<QDBusObjectPath>>(reply.arguments().value(0))) {
        items.append(item.path());
    }
    return items.isEmpty() ? secretItemNotFound : secretSuccess;
}

SecretStatus SecretServiceSession::secretOf(const QString& item, std::string& value) {
    if (const SecretStatus status = openTransferSession(); status != secretSuccess) {
        return status;
    }
    QDBusMessage reply;
    if (const SecretStatus status = call(item, itemInterface, QStringLiteral("GetSecret"),
                                         {QVariant::fromValue(QDBusObjectPath(transferSession))}, reply);
        status != secretSuccess) {
        return status;
    }
    const auto secret = qdbus_cast<TransferredSecret>(reply.arguments().value(0));
    value.assign(secret.value.constData(), static_cast<std::size_t>(secret.value.size()));
    return secretSuccess;
}

namespace {

QVariant secretVariant(const QString& session, const std::string& value) {
    return QVariant::fromValue(TransferredSecret{QDBusObjectPath(session), QByteArray(),
                                                 QByteArray(value.data(), static_cast<qsizetype>(value.size())),
                                                 QStringLiteral("application/octet-stream")});
}

} // namespace

SecretStatus SecretServiceSession::create(const SecretQuery& query, const std::string& value) {
    QString collection;
    if (const SecretStatus status = openCollection(collection); status != secretSuccess) {
        return status;
    }
    if (const SecretStatus status = openTransferSession(); status != secretSuccess) {
        return status;
    }
    const QVariantMap properties{
        {QStringLiteral("org.freedesktop.Secret.Item.Label"),
         QStringLiteral("Keyferry (") + QString::fromStdString(query.account) + QStringLiteral(")")},
        {QStringLiteral("org.freedesktop.Secret.Item.Attributes"), QVariant::fromValue(attributesOf(query))}};
    QDBusMessage reply;
    const QVariantList arguments{properties, secretVariant(transferSession, value), true};
    if (const SecretStatus status =
            call(collection, collectionInterface, QStringLiteral("CreateItem"), arguments, reply);
        status != secretSuccess) {
        return status;
    }
    return statusOfPrompt(reply, 1);
}

SecretStatus SecretServiceSession::setSecret(const QString& item, const std::string& value) {
    if (const SecretStatus status = openTransferSession(); status != secretSuccess) {
        return status;
    }
    QDBusMessage reply;
    return call(item, itemInterface, QStringLiteral("SetSecret"), {secretVariant(transferSession, value)}, reply);
}

SecretStatus SecretServiceSession::remove(const QString& item) {
    QDBusMessage reply;
    if (const SecretStatus status = call(item, itemInterface, QStringLiteral("Delete"), {}, reply);
        status != secretSuccess) {
        return status;
    }
    return statusOfPrompt(reply, 0);
}

SecretStatus SecretServiceSession::statusOfPrompt(const QDBusMessage& reply, int index) {
    return pathAt(reply, index) == noPath ? secretSuccess : SecretServiceBackend::secretInteractionNotAllowed;
}

} // namespace keyferry
