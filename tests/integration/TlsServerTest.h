#pragma once

#include "QtSerialQueue.h"
#include "QtTrust.h"
#include "TlsTestServer.h"

#include <gtest/gtest.h>

#include <memory>

namespace keyferry::testing {

// A test with a TLS test server listening on 127.0.0.1 and a network queue. Two certificate authorities
// are made once per test suite: the server's, which the adapters under test are told to trust, and a
// stranger's, for servers that must be refused.
class TlsServerTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        certificates = std::make_unique<TestCertificates>();
        otherCertificates = std::make_unique<TestCertificates>();
    }

    static void TearDownTestSuite() {
        certificates.reset();
        otherCertificates.reset();
    }

    void SetUp() override {
        ASSERT_TRUE(certificates->ok()) << certificates->error().toStdString();
        ASSERT_TRUE(otherCertificates->ok()) << otherCertificates->error().toStdString();
        ASSERT_TRUE(server.listen());
    }

    static QtTrust serverTrust() { return QtTrust::systemStoreAnd(certificates->authorityPem().toStdString()); }

    static inline std::unique_ptr<TestCertificates> certificates;
    static inline std::unique_ptr<TestCertificates> otherCertificates;
    TlsTestServer server{*certificates};
    QtSerialQueue queue{"test.network"};
};

} // namespace keyferry::testing
