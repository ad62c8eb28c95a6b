#pragma once

#include <QMutex>
#include <QStringList>
#include <QtGlobal>

namespace sayvo::test {

// Collects the log lines written while it exists (from any thread), tagged "info: " or
// "error: " by level.
class LogCapture
{
public:
    LogCapture() { s_previous = qInstallMessageHandler(&LogCapture::handle); }
    ~LogCapture()
    {
        qInstallMessageHandler(s_previous);
        QMutexLocker lock(&s_mutex);
        s_lines.clear();
    }

    QStringList lines() const
    {
        QMutexLocker lock(&s_mutex);
        return s_lines;
    }

private:
    static void handle(QtMsgType type, const QMessageLogContext &, const QString &message)
    {
        const char *level = type == QtCriticalMsg ? "error: "
            : type == QtInfoMsg                   ? "info: "
                                                  : "other: ";
        QMutexLocker lock(&s_mutex);
        s_lines.append(QString::fromLatin1(level) + message);
    }

    static inline QtMessageHandler s_previous = nullptr;
    static inline QMutex s_mutex;
    static inline QStringList s_lines;
};

} // namespace sayvo::test
