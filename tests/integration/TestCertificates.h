#pragma once

#include <QByteArray>
#include <QString>

#include "TempFolder.h"

namespace keyferry::testing {

// A certificate authority and a server certificate for 127.0.0.1 and localhost, signed by it, made with
// the openssl command in a temporary folder that goes away with the object. Made on construction; ok()
// tells whether openssl succeeded (error() says why not). Main thread of a test.
class TestCertificates {
public:
    TestCertificates();

    bool ok() const;
    QString error() const;

    QByteArray authorityPem() const;
    QByteArray serverCertificatePem() const;
    QByteArray serverKeyPem() const;

private:
    bool run(const QStringList& arguments);
    QByteArray read(const QString& name) const;

    QString pathOf(const QString& name) const;

    TempFolder folder_{"keyferry-certificates"};
    QString error_;
};

} // namespace keyferry::testing
