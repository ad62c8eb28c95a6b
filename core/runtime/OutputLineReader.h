#pragma once

#include <QByteArray>
#include <QList>
#include <QMutex>
#include <QObject>
#include <QPointer>
#include <QString>

#include <functional>
#include <optional>

namespace sayvo {

// Cuts the line-feed separated lines out of `buffer`, leaving an unfinished line in it.
QList<QByteArray> takeCompleteLines(QByteArray &buffer);

// The line as UTF-8 text; absent when it is not valid UTF-8. A carriage return stays.
std::optional<QString> decodeLine(const QByteArray &line);

// Turns a child's output into lines. consume() is called on the reader thread with each
// chunk; every complete, valid line is handed, in order, to `onLine` on the main thread, and
// never after `receiver` is gone. An unfinished last
// line is never delivered: a line counts only once its line feed has arrived.
class OutputLineReader
{
public:
    OutputLineReader(QObject *receiver, std::function<void(const QString &line)> onLine);

    void consume(const QByteArray &bytes);

private:
    std::function<void(const QString &)> m_onLine;
    QPointer<QObject> m_receiver;
    QByteArray m_buffer;
    QMutex m_lock; // guards m_buffer only
};

} // namespace sayvo
