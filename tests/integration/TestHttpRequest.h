#pragma once

#include <QByteArray>
#include <QList>
#include <QPair>

namespace keyferry::testing {

// One request as the TLS test server received it.
struct TestHttpRequest {
    QByteArray method;
    QByteArray path; // with the query, as sent
    QList<QPair<QByteArray, QByteArray>> headers;
    QByteArray body;

    // The first header of that name (ASCII case ignored), or a null array.
    QByteArray header(const QByteArray& name) const {
        for (const auto& [key, value] : headers) {
            if (key.compare(name, Qt::CaseInsensitive) == 0) {
                return value;
            }
        }
        return {};
    }
};

} // namespace keyferry::testing
