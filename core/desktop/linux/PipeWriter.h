#pragma once

#include <QByteArray>
#include <QObject>

#include <functional>

class QSocketNotifier;
class QTimer;

namespace sayvo {

// Hands one type's data to the reader through the pipe it sent, without blocking the main
// thread on a slow reader. Closes the pipe and deletes itself when the reader has taken all
// of the data out of the pipe (then runs `written`), the reader went away, or after
// kWriteTimeoutMs. Data merely written into the pipe's buffer is not read yet: a reader that
// was stopped or busy still has it to come.
class PipeWriter : public QObject
{
public:
    static constexpr int kWriteTimeoutMs = 5000;
    static constexpr int kDrainPollMs = 5;

    // Takes the descriptor.
    PipeWriter(int fd, QByteArray data, std::function<void()> written, QObject *parent);
    ~PipeWriter() override;

private:
    void writeSome();
    void closeOnceDrained();
    // The reader sees the end of the data only when the pipe closes: at once, not when the
    // event loop gets to the deletion.
    void finish();
    void closePipe();

    int m_fd;
    QByteArray m_data;
    std::function<void()> m_onWritten;
    qsizetype m_written = 0;
    QSocketNotifier *m_notifier = nullptr;
    QTimer *m_drainPoll = nullptr;
};

} // namespace sayvo
