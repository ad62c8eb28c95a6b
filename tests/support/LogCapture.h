#pragma once

#include <QMutex>
#include <QStringList>
#include <QtGlobal>

#include <vector>

namespace sayvo::test {

// Collects the log lines written while it exists (from any thread) and still passes them on
// to the handler that was installed before it. One capture at a time.
class LogCapture
{
public:
    struct Entry
    {
        QtMsgType type;
        QString category;
        QString message;
    };

    LogCapture() { s_previous = qInstallMessageHandler(&LogCapture::handle); }
    ~LogCapture()
    {
        qInstallMessageHandler(s_previous);
        QMutexLocker lock(&s_mutex);
        s_entries.clear();
    }
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    std::vector<Entry> entries() const
    {
        QMutexLocker lock(&s_mutex);
        return s_entries;
    }

    // The messages alone.
    QStringList messages() const
    {
        QStringList out;
        for (const Entry &entry : entries()) {
            out.append(entry.message);
        }
        return out;
    }

    // The messages tagged "info: " or "error: " by level ("other: " for the rest).
    QStringList lines() const
    {
        QStringList out;
        for (const Entry &entry : entries()) {
            const char *level = entry.type == QtCriticalMsg ? "error: "
                : entry.type == QtInfoMsg                   ? "info: "
                                                            : "other: ";
            out.append(QString::fromLatin1(level) + entry.message);
        }
        return out;
    }

    void clear()
    {
        QMutexLocker lock(&s_mutex);
        s_entries.clear();
    }

private:
    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &message)
    {
        {
            QMutexLocker lock(&s_mutex);
            s_entries.push_back({type, QString::fromUtf8(context.category), message});
        }
        if (s_previous != nullptr) {
            s_previous(type, context, message);
        }
    }

    static inline QtMessageHandler s_previous = nullptr;
    static inline QMutex s_mutex;
    static inline std::vector<Entry> s_entries;
};

} // namespace sayvo::test
