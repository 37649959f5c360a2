#include "QtShellScheduler.h"

#include <QPointer>
#include <QTimer>

#include <cmath>

namespace keyferry {

namespace {

int milliseconds(double seconds) {
    return static_cast<int>(std::lround(seconds * 1000.0));
}

class QtShellTimer : public ShellTimer {
public:
    QtShellTimer(QObject& context, double interval, std::function<void()> tick) : timer(new QTimer(&context)) {
        timer->setTimerType(Qt::PreciseTimer);
        timer->setInterval(milliseconds(interval));
        QObject::connect(timer, &QTimer::timeout, timer, std::move(tick));
        timer->start();
    }
    ~QtShellTimer() override { invalidate(); }

    void invalidate() override {
        if (timer != nullptr) {
            timer->stop();
            timer->deleteLater();
            timer = nullptr;
        }
    }
    bool isValid() const override { return timer != nullptr; }

private:
    QPointer<QTimer> timer; // owned by the scheduler's context object
};

} // namespace

QtShellScheduler::QtShellScheduler() = default;
QtShellScheduler::~QtShellScheduler() = default;

void QtShellScheduler::after(double seconds, std::function<void()> task) {
    QTimer::singleShot(milliseconds(seconds), Qt::PreciseTimer, &context, std::move(task));
}

std::shared_ptr<ShellTimer> QtShellScheduler::repeating(double interval, std::function<void()> tick) {
    return std::make_shared<QtShellTimer>(context, interval, std::move(tick));
}

} // namespace keyferry
