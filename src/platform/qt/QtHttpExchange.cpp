#include "QtHttpExchange.h"

#include <QNetworkRequest>
#include <QUrl>

#include <algorithm>
#include <chrono>

namespace keyferry {

namespace {

constexpr int retryDelaysMilliseconds[] = {250, 500, 1000, 2000};

// Negative or meaningless limits count as zero; Qt timers hold at most about 24 days.
int milliseconds(double seconds) {
    return seconds > 0 ? static_cast<int>(std::min(seconds * 1000.0, 2'000'000'000.0)) : 0;
}

// Errors that Qt reports for an HTTP status (4xx, 5xx): the server answered, so there is a response.
bool isHttpStatusError(QNetworkReply::NetworkError error) {
    const int code = error;
    return (code >= QNetworkReply::ContentAccessDenied && code <= QNetworkReply::UnknownContentError) ||
           code == QNetworkReply::ProtocolInvalidOperationError ||
           (code >= QNetworkReply::InternalServerError && code <= QNetworkReply::UnknownServerError);
}

HttpResponse responseOf(QNetworkReply& reply, int status) {
    HttpResponse response;
    response.status = status;
    for (const auto& [name, value] : reply.rawHeaderPairs()) {
        response.headers.emplace_back(name.toStdString(), value.toStdString());
    }
    response.body = reply.readAll().toStdString();
    return response;
}

} // namespace

QtHttpExchange::QtHttpExchange(QNetworkAccessManager& manager, QSslConfiguration tls, HttpRequest request,
                               std::function<void(HttpOutcome)> completion)
    : QObject(&manager), manager_(manager), tls_(std::move(tls)), request_(std::move(request)),
      completion_(std::move(completion)) {
    deadline_.setSingleShot(true);
    deadline_.setTimerType(Qt::PreciseTimer);
    retry_.setSingleShot(true);
    connect(&deadline_, &QTimer::timeout, this, [this] { giveUp(QStringLiteral("the request timed out")); });
    connect(&retry_, &QTimer::timeout, this, &QtHttpExchange::attempt);
}

void QtHttpExchange::start() {
    deadline_.start(milliseconds(request_.resourceTimeout));
    attempt();
}

QNetworkRequest QtHttpExchange::networkRequest() const {
    QNetworkRequest request(QUrl(QString::fromStdString(request_.url)));
    for (const auto& [name, value] : request_.headers) {
        request.setRawHeader(QByteArray::fromStdString(name), QByteArray::fromStdString(value));
    }
    request.setSslConfiguration(tls_);
    // Qt's transfer timeout is reset by every byte that moves: it is the "no progress" limit.
    request.setTransferTimeout(milliseconds(std::min(request_.timeout, request_.idleTimeout)));
    return request;
}

void QtHttpExchange::attempt() {
    const auto verb = QByteArray::fromStdString(request_.method);
    if (request_.body) {
        reply_ = manager_.sendCustomRequest(networkRequest(), verb, QByteArray::fromStdString(*request_.body));
    } else if (verb == "GET") {
        reply_ = manager_.get(networkRequest()); // the one form that also serves data: and file: URLs
    } else {
        // An empty body rather than none, so that a POST says "Content-Length: 0": some servers refuse a
        // POST without a length.
        reply_ = manager_.sendCustomRequest(networkRequest(), verb, QByteArray());
    }
    connect(reply_.data(), &QNetworkReply::finished, this, &QtHttpExchange::attemptFinished);
}

void QtHttpExchange::attemptFinished() {
    QNetworkReply& reply = *reply_;
    const auto status = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute);
    const auto error = reply.error();
    if (status.isValid() && (error == QNetworkReply::NoError || isHttpStatusError(error))) {
        complete(responseOf(reply, status.toInt()));
    } else if (error == QNetworkReply::NoError) {
        complete(NotHttpResponse{});
    } else if (shouldWaitForNetwork(error)) {
        lastNetworkError_ = reply.errorString();
        dropReply();
        retryLater();
    } else {
        complete(TransportError{reply.errorString().toStdString()});
    }
}

bool QtHttpExchange::shouldWaitForNetwork(QNetworkReply::NetworkError error) const {
    if (!request_.waitsForConnectivity) {
        return false;
    }
    switch (error) {
    case QNetworkReply::ConnectionRefusedError:
    case QNetworkReply::HostNotFoundError:
    case QNetworkReply::TemporaryNetworkFailureError:
    case QNetworkReply::NetworkSessionFailedError:
    case QNetworkReply::UnknownNetworkError: // Qt's name for "network unreachable"
        return true;
    default:
        return false;
    }
}

void QtHttpExchange::retryLater() {
    const auto count = static_cast<int>(std::size(retryDelaysMilliseconds));
    retry_.start(retryDelaysMilliseconds[std::min(retries_, count - 1)]);
    ++retries_;
}

void QtHttpExchange::giveUp(const QString& why) {
    const auto detail = lastNetworkError_.isEmpty()
                            ? why
                            : why + QStringLiteral(" while waiting for the network: ") + lastNetworkError_;
    dropReply();
    complete(TransportError{detail.toStdString()});
}

void QtHttpExchange::complete(HttpOutcome outcome) {
    deadline_.stop();
    retry_.stop();
    dropReply();
    auto completion = std::move(completion_);
    completion_ = nullptr;
    deleteLater();
    if (completion) {
        completion(std::move(outcome));
    }
}

void QtHttpExchange::dropReply() {
    if (reply_) {
        reply_->disconnect(this);
        reply_->abort();
        reply_->deleteLater();
        reply_.clear();
    }
}

} // namespace keyferry
