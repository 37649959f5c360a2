#include "SingleInstance.h"

#include <QDir>
#include <QLocalServer>
#include <QLocalSocket>
#include <QStandardPaths>

#include <unistd.h>

namespace keyferry {

namespace {

const QByteArray reopenRequest = QByteArrayLiteral("reopen\n");
const QByteArray acknowledgement = QByteArrayLiteral("ok\n");

} // namespace

QString SingleInstance::defaultName() {
    const QString runtime = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (!runtime.isEmpty()) {
        return QDir(runtime).filePath(QStringLiteral("com.quillix.companion.instance"));
    }
    return QDir(QDir::tempPath())
        .filePath(QStringLiteral("com.quillix.companion.instance-") + QString::number(getuid()));
}

SingleInstance::SingleInstance(QString serverName) : name(std::move(serverName)), server(new QLocalServer(this)) {
    server->setSocketOptions(QLocalServer::UserAccessOption);
    connect(server, &QLocalServer::newConnection, this, &SingleInstance::accept);
}

SingleInstance::~SingleInstance() = default;

bool SingleInstance::notifyRunningInstance(int timeoutMilliseconds) const {
    QLocalSocket socket;
    socket.connectToServer(name);
    if (!socket.waitForConnected(timeoutMilliseconds)) {
        return false;
    }
    socket.write(reopenRequest);
    if (!socket.waitForBytesWritten(timeoutMilliseconds)) {
        return false;
    }
    while (!socket.canReadLine()) {
        if (!socket.waitForReadyRead(timeoutMilliseconds)) {
            return false;
        }
    }
    return socket.readLine() == acknowledgement;
}

bool SingleInstance::listen() {
    if (server->listen(name)) {
        return true;
    }
    // Nobody answered on the socket (checked before): it was left behind by a copy that crashed.
    QLocalServer::removeServer(name);
    return server->listen(name);
}

void SingleInstance::accept() {
    while (QLocalSocket* socket = server->nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
            if (!socket->canReadLine()) {
                return;
            }
            const bool reopen = socket->readLine() == reopenRequest;
            if (reopen && onReopen) {
                onReopen();
            }
            socket->write(reopen ? acknowledgement : QByteArrayLiteral("?\n"));
            socket->flush();
            socket->disconnectFromServer();
        });
    }
}

} // namespace keyferry
