#include "app/QtMainQueue.hpp"

#include <QCoreApplication>
#include <QThread>
#include <QTimer>
#include <cmath>

namespace quillstow::shell {

void QtMainQueue::post(Work work) {
    QMetaObject::invokeMethod(qApp, std::move(work), Qt::QueuedConnection);
}

DelayedWork QtMainQueue::postDelayed(double seconds, Work work) {
    // The list gives the handle its cancel flag; the timer runs the work unless cancelled.
    auto list = std::make_shared<DelayedWorkList>();
    DelayedWork handle = list->add(0, std::move(work));
    const int milliseconds = int(std::ceil(std::max(0.0, seconds) * 1000));
    post([list, milliseconds] {
        QTimer::singleShot(milliseconds, qApp, [list] {
            if (auto due = list->takeDue(0)) due->run();
        });
    });
    return handle;
}

bool QtMainQueue::isCurrent() const {
    return QThread::currentThread() == qApp->thread();
}

}  // namespace quillstow::shell
