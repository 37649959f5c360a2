#include "QtHttpClient.h"

#include "QtHttpExchange.h"

namespace keyferry {

QtHttpClient::QtHttpClient(QtSerialQueue& queue, QtTrust trust)
    : queue_(queue), tls_(trust.sslConfiguration()), manager_(new QNetworkAccessManager) {
    manager_->moveToThread(queue.context().thread());
    // The queue's context owns the manager from now on (parented on its own thread).
    QMetaObject::invokeMethod(
        manager_.data(), [manager = manager_.data(), context = &queue.context()] { manager->setParent(context); },
        Qt::QueuedConnection);
}

QtHttpClient::~QtHttpClient() {
    // Queued behind every send already posted, so those still find their manager.
    if (manager_) {
        manager_->deleteLater();
    }
}

void QtHttpClient::send(HttpRequest request, std::function<void(HttpOutcome)> completion) {
    queue_.post([manager = manager_.data(), tls = tls_, request = std::move(request),
                 completion = std::move(completion)]() mutable {
        auto* exchange = new QtHttpExchange(*manager, tls, std::move(request), std::move(completion));
        exchange->start();
    });
}

} // namespace keyferry
