#include "QtTrust.h"

#include <QByteArray>

namespace keyferry {

QtTrust::QtTrust(QList<QSslCertificate> extraAuthorities) : extraAuthorities_(std::move(extraAuthorities)) {}

QtTrust QtTrust::systemStore() {
    return QtTrust({});
}

QtTrust QtTrust::systemStoreAnd(const std::string& authoritiesPem) {
    const auto pem = QByteArray::fromStdString(authoritiesPem);
    return QtTrust(QSslCertificate::fromData(pem, QSsl::Pem));
}

QSslConfiguration QtTrust::sslConfiguration() const {
    auto configuration = QSslConfiguration::defaultConfiguration();
    configuration.setPeerVerifyMode(QSslSocket::VerifyPeer);
    if (!extraAuthorities_.isEmpty()) {
        configuration.addCaCertificates(extraAuthorities_);
    }
    return configuration;
}

qsizetype QtTrust::extraAuthorityCount() const {
    return extraAuthorities_.size();
}

} // namespace keyferry
