#pragma once

#include <QObject>

class QSocketNotifier;

namespace sayvo {

// Turns SIGTERM, SIGINT and SIGHUP into an orderly QCoreApplication::quit() from the event
// loop (a signal handler itself may only write to a pipe).
class ShutdownSignals : public QObject
{
    Q_OBJECT

public:
    explicit ShutdownSignals(QObject *parent = nullptr);
    ~ShutdownSignals() override;

private:
    QSocketNotifier *m_notifier = nullptr;
};

} // namespace sayvo
