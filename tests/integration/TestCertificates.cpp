#include "TestCertificates.h"

#include <QFile>
#include <QProcess>

namespace keyferry::testing {

namespace {

const QStringList ecKey = {QStringLiteral("-newkey"), QStringLiteral("ec"), QStringLiteral("-pkeyopt"),
                           QStringLiteral("ec_paramgen_curve:prime256v1"), QStringLiteral("-nodes")};

} // namespace

TestCertificates::TestCertificates() {
    QFile extensions(pathOf(QStringLiteral("server.ext")));
    extensions.open(QIODevice::WriteOnly);
    extensions.write("subjectAltName=IP:127.0.0.1,DNS:localhost\nbasicConstraints=critical,CA:FALSE\n"
                     "keyUsage=critical,digitalSignature\nextendedKeyUsage=serverAuth\n");
    extensions.close();
    const QString lifetime = QStringLiteral("2");
    run(QStringList{QStringLiteral("req"), QStringLiteral("-x509")} + ecKey +
        QStringList{QStringLiteral("-keyout"), QStringLiteral("ca.key"), QStringLiteral("-out"),
                    QStringLiteral("ca.pem"), QStringLiteral("-days"), lifetime, QStringLiteral("-subj"),
                    QStringLiteral("/CN=Keyferry Test CA"), QStringLiteral("-addext"),
                    QStringLiteral("basicConstraints=critical,CA:TRUE"), QStringLiteral("-addext"),
                    QStringLiteral("keyUsage=critical,keyCertSign,cRLSign")}) &&
        run(QStringList{QStringLiteral("req")} + ecKey +
            QStringList{QStringLiteral("-keyout"), QStringLiteral("server.key"), QStringLiteral("-out"),
                        QStringLiteral("server.csr"), QStringLiteral("-subj"), QStringLiteral("/CN=127.0.0.1")}) &&
        run({QStringLiteral("x509"), QStringLiteral("-req"), QStringLiteral("-in"), QStringLiteral("server.csr"),
             QStringLiteral("-CA"), QStringLiteral("ca.pem"), QStringLiteral("-CAkey"), QStringLiteral("ca.key"),
             QStringLiteral("-set_serial"), QStringLiteral("2"), QStringLiteral("-days"), lifetime,
             QStringLiteral("-extfile"), QStringLiteral("server.ext"), QStringLiteral("-out"),
             QStringLiteral("server.pem")});
}

bool TestCertificates::run(const QStringList& arguments) {
    QProcess openssl;
    openssl.setWorkingDirectory(QString::fromStdString(folder_.path().string()));
    openssl.setProcessChannelMode(QProcess::MergedChannels);
    openssl.start(QStringLiteral(KEYFERRY_OPENSSL), arguments);
    const bool finished = openssl.waitForFinished(30'000);
    if (!finished || openssl.exitStatus() != QProcess::NormalExit || openssl.exitCode() != 0) {
        error_ = QStringLiteral("openssl %1 failed: %2")
                     .arg(arguments.join(QLatin1Char(' ')), QString::fromLocal8Bit(openssl.readAll()));
        return false;
    }
    return true;
}

QString TestCertificates::pathOf(const QString& name) const {
    return QString::fromStdString((folder_ / name.toStdString()).string());
}

bool TestCertificates::ok() const {
    return error_.isEmpty();
}

QString TestCertificates::error() const {
    return error_;
}

QByteArray TestCertificates::read(const QString& name) const {
    QFile file(pathOf(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QByteArray TestCertificates::authorityPem() const {
    return read(QStringLiteral("ca.pem"));
}

QByteArray TestCertificates::serverCertificatePem() const {
    return read(QStringLiteral("server.pem"));
}

QByteArray TestCertificates::serverKeyPem() const {
    return read(QStringLiteral("server.key"));
}

} // namespace keyferry::testing
