#include "QtSerialQueue.h"

#include "QtRepeatingTimer.h"
#include "QtWorkItem.h"

#include <QMetaObject>

#include <chrono>

namespace keyferry {

namespace {

// Negative or meaningless lengths count as zero; lengths beyond a century as a century.
std::chrono::nanoseconds length(double seconds) {
    constexpr double century = 100.0 * 365 * 24 * 3600;
    const double bounded = seconds > 0 ? std::min(seconds, century) : 0.0;
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(bounded));
}

QtDeadlineQueue::TimePoint deadlineAfter(double seconds) {
    return std::chrono::steady_clock::now() + length(seconds);
}

} // namespace

QtSerialQueue::QtSerialQueue(const std::string& name)
    : thread_(std::make_unique<QThread>()), context_(std::make_unique<QObject>()) {
    thread_->setObjectName(QString::fromStdString(name));
    context_->moveToThread(thread_.get());
    // Runs on the queue's thread after its event loop has ended.
    QObject::connect(
        thread_.get(), &QThread::finished, context_.get(), [this] { releaseOnQueueThread(); }, Qt::DirectConnection);
    thread_->start();
}

QtSerialQueue::QtSerialQueue(OnCallingThread) : context_(std::make_unique<QObject>()) {}

QtSerialQueue::~QtSerialQueue() {
    stop();
    context_.reset(); // drops the tasks still posted
}

void QtSerialQueue::stop() {
    // The event loop may still deliver events already taken in hand after quit(): the flag stops them.
    stopping_ = true;
    if (!thread_) {
        releaseOnQueueThread();
        return;
    }
    thread_->quit();
    thread_->wait();
}

void QtSerialQueue::releaseOnQueueThread() {
    deadlines_.reset();
    const auto children = context_->children();
    for (QObject* child : children) {
        delete child; // Qt parent ownership: the queue owns its children
    }
}

void QtSerialQueue::post(std::function<void()> task) {
    QMetaObject::invokeMethod(
        context_.get(),
        [this, task = std::move(task)] {
            if (!stopping_) {
                task();
            }
        },
        Qt::QueuedConnection);
}

std::shared_ptr<WorkItem> QtSerialQueue::postAfter(double seconds, std::function<void()> task) {
    auto item = std::make_shared<QtWorkItem>();
    post([this, item, deadline = deadlineAfter(seconds), task = std::move(task)]() mutable {
        deadlines().schedule(deadline, [item, task = std::move(task)] {
            if (!item->isCancelled()) {
                task();
            }
        });
    });
    return item;
}

std::shared_ptr<RepeatingTimer> QtSerialQueue::startTimer(double firstDeadline, double period,
                                                          std::function<void()> handler) {
    auto timer = std::make_shared<QtRepeatingTimer>(length(period), std::move(handler));
    post([this, weakTimer = std::weak_ptr<QtRepeatingTimer>(timer), deadline = deadlineAfter(firstDeadline)] {
        if (const auto alive = weakTimer.lock()) {
            alive->scheduleTick(deadlines(), deadline);
        }
    });
    return timer;
}

bool QtSerialQueue::isCurrent() const {
    return QThread::currentThread() == (thread_ ? thread_.get() : context_->thread());
}

QObject& QtSerialQueue::context() {
    return *context_;
}

QtDeadlineQueue& QtSerialQueue::deadlines() {
    if (!deadlines_) {
        deadlines_ = std::make_unique<QtDeadlineQueue>(stopping_);
    }
    return *deadlines_;
}

} // namespace keyferry
