#pragma once

#include "protocol/ControlMessages.h"
#include "runtime/ControlClient.h"

#include <QObject>
#include <QString>

#include <functional>
#include <memory>

class QLocalServer;
class QLocalSocket;

namespace sayvo {

// The server side of the running Sayvo's per-user channel: a directory only this user may
// enter (instanceDirectory()) holding a lock file and a Unix socket. The running instance
// holds the lock for its whole life, so the kernel drops it with the process and a crash
// leaves nothing that blocks the next launch; a socket left by a crash is replaced by the next
// instance. Requests from a process of another user are refused even if the directory's
// permissions were loosened. Main thread only.
class InstanceChannel : public QObject
{
    Q_OBJECT

public:
    enum class Claim {
        // This is the only instance; listen() next.
        first,
        // Another instance of this user holds the lock.
        taken,
        // The directory could not be made private to this user; see failure().
        unavailable,
    };

    // A request that has not arrived whole by then is dropped.
    static constexpr int kRequestTimeoutMs = 2000;
    static constexpr int kMaxRequestBytes = 64;

    explicit InstanceChannel(
        QString directory = QString::fromStdString(instanceDirectory()), QObject *parent = nullptr);
    ~InstanceChannel() override;

    const QString &directory() const { return m_directory; }
    Claim claim();
    // Accepts requests; false (see failure()) when the socket could not be made.
    bool listen();
    void stopListening();
    QString failure() const { return m_failure; }

    // Runs on the main thread for each request, before the answer goes back.
    void setHandler(std::function<void(ControlRequest)> handler) { m_handler = std::move(handler); }

private:
    void accept();
    void answer(QLocalSocket *socket);

    QString m_directory;
    QString m_failure;
    int m_lock = -1;
    std::unique_ptr<QLocalServer> m_server;
    std::function<void(ControlRequest)> m_handler;
};

} // namespace sayvo
