#pragma once

#include <QList>
#include <QSslCertificate>
#include <QSslConfiguration>

#include <string>

namespace keyferry {

// Which certificate authorities a TLS peer must chain to: the system's trust store, optionally plus
// authorities given as PEM (for tests and self-hosted services). Peers are always verified; there is no
// insecure mode. A value type, safe to copy between threads. PEM text that holds no certificate adds none.
class QtTrust {
public:
    static QtTrust systemStore();
    static QtTrust systemStoreAnd(const std::string& authoritiesPem);

    QSslConfiguration sslConfiguration() const;
    qsizetype extraAuthorityCount() const;

private:
    explicit QtTrust(QList<QSslCertificate> extraAuthorities);

    QList<QSslCertificate> extraAuthorities_;
};

} // namespace keyferry
