// The yardstick for the application's idle footprint: the least a Qt Widgets tray program with the same
// network stack holds. A tray icon, a QNetworkAccessManager that makes one HTTPS request, and a QWebSocket
// kept open to the service, all on the main thread.
//   keyferry-bench-bare-tray BASE_URL CA_FILE COMPUTER_TOKEN
// Prints "connected" once the socket is open and "disconnected" if it closes.
#include <QApplication>
#include <QColor>
#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPixmap>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSystemTrayIcon>
#include <QUrl>
#include <QWebSocket>

#include <cstdio>

namespace {

QSslConfiguration trusting(const QString& authorityFile) {
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    QFile file(authorityFile);
    if (file.open(QIODevice::ReadOnly)) {
        configuration.addCaCertificates(QSslCertificate::fromData(file.readAll(), QSsl::Pem));
    }
    return configuration;
}

QNetworkRequest authorized(const QUrl& url, const QByteArray& token, const QSslConfiguration& tls) {
    QNetworkRequest request(url);
    request.setRawHeader("Authorization", "Bearer " + token);
    request.setSslConfiguration(tls);
    return request;
}

void say(const char* line) {
    std::printf("%s\n", line);
    std::fflush(stdout);
}

} // namespace

int main(int argc, char* argv[]) {
    QApplication application(argc, argv);
    if (argc != 4) {
        std::fprintf(stderr, "usage: %s BASE_URL CA_FILE COMPUTER_TOKEN\n", argv[0]);
        return 2;
    }
    QApplication::setQuitOnLastWindowClosed(false);
    const QUrl base(QString::fromUtf8(argv[1]));
    const QSslConfiguration tls = trusting(QString::fromUtf8(argv[2]));
    const QByteArray token(argv[3]);

    QPixmap image(22, 22);
    image.fill(QColor(40, 90, 200));
    QSystemTrayIcon tray{QIcon(image)};
    tray.show();

    QNetworkAccessManager network;
    QNetworkReply* reply =
        network.get(authorized(base.resolved(QUrl(QStringLiteral("v1/computers/phones"))), token, tls));
    QObject::connect(reply, &QNetworkReply::finished, reply, &QObject::deleteLater);

    QWebSocket socket;
    QObject::connect(&socket, &QWebSocket::connected, [] { say("connected"); });
    QObject::connect(&socket, &QWebSocket::disconnected,
                     [&socket] { say(("disconnected: " + socket.errorString().toStdString()).c_str()); });
    QUrl socketUrl = base.resolved(QUrl(QStringLiteral("/v1/computers/connect")));
    socketUrl.setScheme(QStringLiteral("wss"));
    socket.setSslConfiguration(tls); // the socket does not take it from the request
    socket.open(authorized(socketUrl, token, tls));
    return QApplication::exec();
}
