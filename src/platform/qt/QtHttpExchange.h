#pragma once

#include "HttpClient.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QObject>
#include <QPointer>
#include <QSslConfiguration>
#include <QTimer>

#include <functional>

namespace keyferry {

// One HTTP exchange on the network manager's thread: its attempts, the wait for an unreachable network,
// and the exchange's overall deadline. Owned by its manager (Qt parent); completes exactly once and then
// deletes itself. Destroyed with the manager before completing, it completes never.
class QtHttpExchange : public QObject {
public:
    QtHttpExchange(QNetworkAccessManager& manager, QSslConfiguration tls, HttpRequest request,
                   std::function<void(HttpOutcome)> completion);

    void start();

private:
    void attempt();
    void attemptFinished();
    bool shouldWaitForNetwork(QNetworkReply::NetworkError error) const;
    void retryLater();
    void giveUp(const QString& why);
    void complete(HttpOutcome outcome);
    void dropReply();
    QNetworkRequest networkRequest() const;

    QNetworkAccessManager& manager_;
    const QSslConfiguration tls_;
    const HttpRequest request_;
    std::function<void(HttpOutcome)> completion_;
    QPointer<QNetworkReply> reply_;
    QTimer deadline_;
    QTimer retry_;
    int retries_ = 0;
    QString lastNetworkError_;
};

} // namespace keyferry
