#pragma once

#include "engine/server/EngineSession.h"
#include "engine/server/WorkerPool.h"

#include <QHostAddress>
#include <QObject>
#include <QString>

#include <memory>

class QWebSocketServer;

namespace sayvo {

// The engine's WebSocket endpoint: one independent `EngineSession` per connection.
// Refuses any handshake that carries an Origin header, since only a web page sends one and
// no web page may read transcripts or the personal dictionary. Lives on the main thread,
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
    void acceptPending();

    EngineServices &m_services;
    ThreadWorkerPool m_workers;
    WorkerThread m_storeThread;
    QWebSocketServer *m_server;
};

} // namespace sayvo
