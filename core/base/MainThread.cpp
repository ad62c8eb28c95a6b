#include "base/MainThread.h"

#include <QCoreApplication>

namespace sayvo {

void postToMainThread(const QPointer<QObject> &receiver, std::function<void()> work)
{
    // Posting everything to the application object keeps the order of posts from one
    // thread; the guard is only read on the main thread.
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [receiver, work = std::move(work)] {
            if (receiver) {
                work();
            }
        },
        Qt::QueuedConnection);
}

} // namespace sayvo
