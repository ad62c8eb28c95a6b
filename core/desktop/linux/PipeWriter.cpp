#include "desktop/linux/PipeWriter.h"

#include <QSocketNotifier>
#include <QTimer>

#include <cerrno>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace sayvo {

namespace {

// A reader that closes its end of the pipe early must not end the process with SIGPIPE: the
// signal is held back for this thread during the write and discarded.
ssize_t writeWithoutSigpipe(int fd, const char *data, size_t size)
{
    sigset_t pipeSignal;
    sigset_t previous;
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipeSignal, &previous);
    const ssize_t written = ::write(fd, data, size);
    const int error = errno;
    if (written < 0 && error == EPIPE) {
        const timespec now {};
        sigtimedwait(&pipeSignal, nullptr, &now);
    }
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    errno = error;
    return written;
}

} // namespace

PipeWriter::PipeWriter(int fd, QByteArray data, std::function<void()> written, QObject *parent)
    : QObject(parent), m_fd(fd), m_data(std::move(data)), m_onWritten(std::move(written))
{
    ::fcntl(m_fd, F_SETFL, ::fcntl(m_fd, F_GETFL) | O_NONBLOCK);
    m_notifier = new QSocketNotifier(m_fd, QSocketNotifier::Write, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &PipeWriter::writeSome);
    QTimer::singleShot(kWriteTimeoutMs, this, &PipeWriter::finish);
    writeSome();
}

PipeWriter::~PipeWriter()
{
    closePipe();
}

void PipeWriter::writeSome()
{
    while (m_written < m_data.size()) {
        const ssize_t written = writeWithoutSigpipe(
            m_fd, m_data.constData() + m_written, size_t(m_data.size() - m_written));
        if (written > 0) {
            m_written += written;
        } else if (written < 0 && errno == EAGAIN) {
            return;
        } else if (!(written < 0 && errno == EINTR)) {
            break;
        }
    }
    if (m_written < m_data.size()) {
        finish();
        return;
    }
    // All of it is in the pipe; the reader sees the end once it has emptied the pipe and
    // this end closes. No event says when a pipe became empty, so it is looked at.
    m_notifier->setEnabled(false);
    if (!m_drainPoll) {
        m_drainPoll = new QTimer(this);
        connect(m_drainPoll, &QTimer::timeout, this, &PipeWriter::closeOnceDrained);
        m_drainPoll->start(kDrainPollMs);
    }
    closeOnceDrained();
}

void PipeWriter::closeOnceDrained()
{
    if (m_fd < 0) {
        return;
    }
    // A reader that closed its end without emptying the pipe read nothing.
    pollfd state {m_fd, POLLOUT, 0};
    if (::poll(&state, 1, 0) > 0 && (state.revents & POLLERR) != 0) {
        finish();
        return;
    }
    int unread = 0;
    // Not a pipe (a file the reader passed) counts as taken at once.
    if (::ioctl(m_fd, FIONREAD, &unread) == 0 && unread > 0) {
        return;
    }
    finish();
    if (m_onWritten) {
        m_onWritten();
    }
}

void PipeWriter::finish()
{
    m_notifier->setEnabled(false);
    if (m_drainPoll) {
        m_drainPoll->stop();
    }
    closePipe();
    deleteLater();
}

void PipeWriter::closePipe()
{
    if (m_fd >= 0) {
        ::close(m_fd);
        m_fd = -1;
    }
}

} // namespace sayvo
