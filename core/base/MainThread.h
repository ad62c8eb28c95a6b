#pragma once

#include <QObject>
#include <QPointer>

#include <functional>

namespace sayvo {

// Runs `work` on the main thread, after everything posted before it from the same thread,
// unless `receiver` has gone by then. Callable from any thread.
void postToMainThread(const QPointer<QObject> &receiver, std::function<void()> work);

} // namespace sayvo
