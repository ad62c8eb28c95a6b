#pragma once

#include "engine/server/EngineSession.h"
#include "engine/server/WorkerPool.h"

#include <QHostAddress>
#include <QObject>
#include <QString>

#include <memory>

class QTcpServer;
class QTcpSocket;
class QWebSocketServer;

namespace sayvo {

// The engine's WebSocket endpoint: one independent `EngineSession` per connection.
// What it hears is what a user dictated, so it talks only to that user's programs: a loopback
// connection from a socket another user owns (looked up in /proc/net/tcp and tcp6, where the
// system has them) is dropped before the handshake, and any handshake that carries an Origin
// header is refused, since only a web page sends one. Lives on the main thread,
// which only moves frames: it gives the services their recognition workers (one per core
// this process may use) and the learning store its own thread.
class EngineServer : public QObject
{
    Q_OBJECT

public:
    // Messages larger than this close the connection outright instead of being answered.
    static constexpr qint64 kHardMessageLimitBytes = qint64 {8} * 1024 * 1024;

    // `recognitionWorkers` 0 means one per core.
    EngineServer(EngineServices &services, int recognitionWorkers = 0, QObject *parent = nullptr);
    ~EngineServer() override;

    int recognitionWorkers() const { return m_workers.capacity(); }

    bool listen(const QHostAddress &address, quint16 port);
    QString errorString() const;
    quint16 port() const;

private:
    void admitConnections();
    bool isOwnUsersPeer(const QTcpSocket &socket) const;
    void acceptPending();

    EngineServices &m_services;
    ThreadWorkerPool m_workers;
    WorkerThread m_storeThread;
    QTcpServer *m_listener;
    QWebSocketServer *m_server;
};

} // namespace sayvo
