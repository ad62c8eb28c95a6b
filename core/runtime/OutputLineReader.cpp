#include "runtime/OutputLineReader.h"

#include "base/MainThread.h"

#include <QMutexLocker>
#include <QStringDecoder>

namespace sayvo {

QList<QByteArray> takeCompleteLines(QByteArray &buffer)
{
    QList<QByteArray> lines;
    qsizetype start = 0;
    for (qsizetype end = buffer.indexOf('\n'); end >= 0; end = buffer.indexOf('\n', start)) {
        lines.append(buffer.mid(start, end - start));
        start = end + 1;
    }
    buffer.remove(0, start);
    return lines;
}

std::optional<QString> decodeLine(const QByteArray &line)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder.decode(line);
    if (decoder.hasError()) {
        return std::nullopt;
    }
    return text;
}

OutputLineReader::OutputLineReader(
    QObject *receiver, std::function<void(const QString &line)> onLine)
    : m_onLine(std::move(onLine)), m_receiver(receiver)
{ }

void OutputLineReader::consume(const QByteArray &bytes)
{
    QList<QByteArray> lines;
    {
        QMutexLocker locker(&m_lock);
        m_buffer.append(bytes);
        lines = takeCompleteLines(m_buffer);
    }
    for (const QByteArray &raw : lines) {
        if (std::optional<QString> line = decodeLine(raw)) {
            postToMainThread(m_receiver, [onLine = m_onLine, text = *line] { onLine(text); });
        }
    }
}

} // namespace sayvo
