#include "runtime/InstanceChannel.h"

#include "runtime/UnixSocket.h"

#include <QFile>
#include <QLocalServer>
#include <QLocalSocket>
#include <QTimer>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace sayvo {

namespace {

const char *const kLockName = "/instance.lock";

QString systemError()
{
    return QString::fromStdString(std::generic_category().message(errno));
}

} // namespace

InstanceChannel::InstanceChannel(QString directory, QObject *parent)
    : QObject(parent), m_directory(std::move(directory))
{ }

InstanceChannel::~InstanceChannel()
{
    stopListening();
    if (m_lock >= 0) {
        ::close(m_lock);
    }
}

void InstanceChannel::stopListening()
{
    m_server.reset();
}

InstanceChannel::Claim InstanceChannel::claim()
{
    const QByteArray path = QFile::encodeName(m_directory);
    if (::mkdir(path.constData(), 0700) != 0 && errno != EEXIST) {
        m_failure = m_directory + QStringLiteral(" could not be made: ") + systemError();
        return Claim::unavailable;
    }
    // Never follow a link another user may have planted under /tmp.
    struct stat info
    {
    };
    if (::lstat(path.constData(), &info) != 0 || !S_ISDIR(info.st_mode)) {
        m_failure = m_directory + QStringLiteral(" is not a directory");
        return Claim::unavailable;
    }
    if (info.st_uid != ::geteuid()) {
        m_failure = m_directory + QStringLiteral(" belongs to another user");
        return Claim::unavailable;
    }
    if ((info.st_mode & 077) != 0 && ::chmod(path.constData(), 0700) != 0) {
        m_failure = m_directory + QStringLiteral(" could not be made private: ") + systemError();
        return Claim::unavailable;
    }
    const QByteArray lockPath = path + kLockName;
    // Close-on-exec: a child (the engine) must not keep the lock after Sayvo is gone.
    m_lock = ::open(lockPath.constData(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (m_lock < 0) {
        m_failure = QStringLiteral("the instance lock could not be opened: ") + systemError();
        return Claim::unavailable;
    }
    if (::flock(m_lock, LOCK_EX | LOCK_NB) != 0) {
        const bool held = errno == EWOULDBLOCK;
        m_failure = held ? QString() : QStringLiteral("the instance lock failed: ") + systemError();
        ::close(m_lock);
        m_lock = -1;
        return held ? Claim::taken : Claim::unavailable;
    }
    return Claim::first;
}

bool InstanceChannel::listen()
{
    const QString path = QString::fromStdString(instanceSocketPath(m_directory.toStdString()));
    // The lock is ours, so a socket already there was left by a crash.
    QLocalServer::removeServer(path);
    m_server = std::make_unique<QLocalServer>();
    if (!m_server->listen(path)) {
        m_failure
            = QStringLiteral("the instance socket could not be made: ") + m_server->errorString();
        m_server.reset();
        return false;
    }
    connect(m_server.get(), &QLocalServer::newConnection, this, &InstanceChannel::accept);
    return true;
}

void InstanceChannel::accept()
{
    while (QLocalSocket *socket = m_server->nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        QTimer::singleShot(kRequestTimeoutMs, socket, [socket] { socket->abort(); });
        const std::optional<uid_t> peer = peerUserId(int(socket->socketDescriptor()));
        if (!peer || *peer != ::geteuid()) {
            socket->write(QByteArray::fromStdString(encode(ControlReply::refused)));
            socket->disconnectFromServer();
            continue;
        }
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] { answer(socket); });
        answer(socket);
    }
}

void InstanceChannel::answer(QLocalSocket *socket)
{
    if (!socket->canReadLine()) {
        if (socket->bytesAvailable() > kMaxRequestBytes) {
            socket->abort();
        }
        return;
    }
    const QByteArray line = socket->readLine(kMaxRequestBytes + 1);
    const std::optional<ControlRequest> request = decodeControlRequest(line.toStdString());
    if (request && m_handler) {
        m_handler(*request);
    }
    socket->write(
        QByteArray::fromStdString(encode(request ? ControlReply::done : ControlReply::unknown)));
    socket->disconnectFromServer();
}

} // namespace sayvo
