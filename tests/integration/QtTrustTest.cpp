#include "QtTrust.h"
#include "TestCertificates.h"

#include <gtest/gtest.h>

namespace keyferry {
namespace {

using testing::TestCertificates;

TEST(QtTrustTest, GivenAuthoritiesAreTrustedBesideTheSystemStore) {
    TestCertificates first;
    TestCertificates second;
    ASSERT_TRUE(first.ok() && second.ok());
    const auto system = QtTrust::systemStore().sslConfiguration().caCertificates();

    const auto trust = QtTrust::systemStoreAnd((first.authorityPem() + second.authorityPem()).toStdString());

    EXPECT_EQ(trust.extraAuthorityCount(), 2);
    const auto configuration = trust.sslConfiguration();
    EXPECT_EQ(configuration.caCertificates().size(), system.size() + 2);
    EXPECT_TRUE(configuration.caCertificates().contains(QSslCertificate(first.authorityPem(), QSsl::Pem)));
    EXPECT_EQ(configuration.peerVerifyMode(), QSslSocket::VerifyPeer);
}

TEST(QtTrustTest, TextWithoutCertificatesAddsNone) {
    const auto trust = QtTrust::systemStoreAnd("not a certificate");
    EXPECT_EQ(trust.extraAuthorityCount(), 0);
    EXPECT_EQ(trust.sslConfiguration().caCertificates().size(),
              QtTrust::systemStore().sslConfiguration().caCertificates().size());
}

} // namespace
} // namespace keyferry
