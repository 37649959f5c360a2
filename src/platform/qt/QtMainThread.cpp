#include "QtMainThread.h"

#include <QCoreApplication>
#include <QMetaObject>

namespace keyferry {

QtMainThread::QtMainThread() {
    context_.moveToThread(QCoreApplication::instance()->thread());
}

void QtMainThread::post(std::function<void()> task) {
    // A queued call is an event for the application's thread: asynchronous even from that thread, and
    // events for one receiver are delivered in the order they were posted.
    QMetaObject::invokeMethod(&context_, std::move(task), Qt::QueuedConnection);
}

} // namespace keyferry
